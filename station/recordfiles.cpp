#include "station/recordfiles.h"

#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

RecordFiles::RecordFiles(const Disk& disk, std::string name, int split) : _disk(disk), _name(std::move(name)) {
  _logger.SetHostname(_name);
  _SetTime();
  _logger.SetSplitSeconds(split);
  LookAtDisk();
}

void RecordFiles::SetHeader(const std::string& line) {
  if (line == _header) return;
  _header = line;
  _logger.SetDATAH(line);
}

void RecordFiles::Write(const std::string& line) {
  if (_stopped) return;
  _SetTime();
  LookAtDisk();
  if (_there) _logger.WriteDATA(line, _now);
  ++(_there && _logger.USBState() == Logger::StateLogging ? _written : _lost);
}

void RecordFiles::LookAtDisk() {
  if (_disk.IsThere() != _there) {
    _there = !_there;
    if (_there) _FinishLeftovers();
    _logger.SetMountPath(_there ? _disk.Path() : "");
    if (!_there) _EndFile();
  } else if (_there && _logger.USBState() == Logger::StateError) {
    _EndFile();
  }
}

void RecordFiles::Start() {
  _stopped = false;
  _logger.StartLogging();
}

void RecordFiles::Stop() {
  _stopped = true;
  _logger.StopLogging();
}

void RecordFiles::_EndFile() {
  _logger.StopLogging();
  if (!_stopped) _logger.StartLogging();
}

void RecordFiles::_SetTime() {
  const time_t now = time(nullptr);
  if (now == _now) return;
  _now = now;
  tm parts;
  char date[16], clock[16];
  gmtime_r(&now, &parts);
  strftime(date, sizeof date, "%Y-%m-%d", &parts);
  strftime(clock, sizeof clock, "%H:%M:%S", &parts);
  _logger.SetSeconds(now);
  _logger.SetDateTime(date, clock);
}

void RecordFiles::_FinishLeftovers() const {
  namespace fs = std::filesystem;
  std::error_code ignored;  // the disk may go at any moment
  std::vector<fs::path> parts;
  for (fs::directory_iterator entry(_disk.Path(), ignored), end; entry != end; entry.increment(ignored)) {
    const std::string name = entry->path().filename();
    if (name.starts_with(_name + '-') && name.ends_with(".txt.part")) parts.push_back(entry->path());
  }
  for (const fs::path& part : parts) {
    fs::path text = part;
    text.replace_extension();
    while (fs::exists(text, ignored)) text.replace_filename(text.stem().string() + "-2.txt");
    if (fs::file_size(part, ignored) == 0)
      fs::remove(part, ignored);
    else
      fs::rename(part, text, ignored);
  }
}
