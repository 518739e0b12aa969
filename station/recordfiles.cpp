#include "station/recordfiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "runtime/runprogram.h"
#include "runtime/streamfile.h"

namespace {

// An empty path stays so.
std::string WithoutEnding(const std::string& path) {
  return path.substr(0, path.rfind('.'));
}

// BASE.txt into BASE.zip, by a process of its own that gives way to others. The text goes once archive and name have
// reached the disk: a power cut takes one of the two at most.
void Pack(const std::string& base, const std::string& directory) {
  try {
    RunProgramAsDaemon(
        "/bin/nice -n 10 /bin/sh -c '"
        "exec < /dev/null > /dev/null; zip -q -T -j \"$1.zip\" \"$1.txt\" && sync \"$1.zip\" \"$2\" && rm \"$1.txt\""
        "' pack " +
        base + ' ' + directory);
  } catch (const std::exception& error) {  // the file is safe unpacked
    std::cout << "ERROR: Unable to zip " << base << ".txt: " << error.what() << std::endl;
  }
}

}  // namespace

void CutBehindLastLine(const std::string& path) {
  try {
    StreamFile file(path, O_RDWR | O_CLOEXEC);
    char block[4096];
    for (off_t end = lseek(file.Fileno(), 0, SEEK_END); end > 0;) {
      const off_t begin = std::max<off_t>(end - off_t{sizeof block}, 0);
      const ssize_t size = pread(file.Fileno(), block, static_cast<size_t>(end - begin), begin);
      if (size <= 0) return;
      const size_t line = std::string_view(block, static_cast<size_t>(size)).rfind('\n');
      if (line != std::string_view::npos) {
        const off_t whole = begin + static_cast<off_t>(line) + 1;
        [[maybe_unused]] const int result = whole < size + begin ? ftruncate(file.Fileno(), whole) : 0;
        return;
      }
      end = begin;
    }
    unlink(path.c_str());
  } catch (const std::exception&) {  // it has gone with its disk
  }
}

RecordFiles::RecordFiles(const Disk& disk, const std::string& station, std::string family, int split)
    : _disk(disk), _name(station + family), _family(std::move(family)), _split(split) {
  _logger.SetHostname(_name);
  _SetTime();
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
  _FollowDisk();
  const bool opens = _file.empty() || _logger.IsSplitDue();
  if (!_there || (opens && !_disk.IsStillThere())) {
    ++_lost;
    return;
  }
  if (opens) {
    const std::string ended = WithoutEnding(_file);
    _EndFile();
    if (!ended.empty()) Pack(WithoutEnding(ended), _disk.Path());
    _NameNextFile();
  }
  _logger.WriteDATA(line, static_cast<long>(_now));
  const int state = _logger.USBState();
  if (state == Logger::StateNotLogging) _file.clear();  // it can't be opened
  ++(state == Logger::StateLogging ? _written : _lost);
}

void RecordFiles::LookAtDisk() {
  _FollowDisk();
  if (!_there) return;
  if (_logger.USBState() == Logger::StateError) _EndFile();
  if (_left) _FinishLeftovers();
}

void RecordFiles::_FollowDisk() {
  if (_disk.IsThere() == _there) return;
  _there = !_there;
  if (_there) _FinishLeftovers();
  _logger.SetMountPath(_there ? _disk.Path() : "");
  if (!_there) _EndFile();
}

void RecordFiles::Start() {
  _stopped = false;
  _logger.StartLogging();
}

void RecordFiles::Stop() {
  _EndFile();
  _stopped = true;
  _logger.StopLogging();
}

void RecordFiles::_EndFile() {
  const std::string file = std::exchange(_file, "");
  const bool failed = _logger.USBState() == Logger::StateError;
  _logger.StopLogging();
  if (!_stopped) _logger.StartLogging();
  if (file.empty()) return;
  CutBehindLastLine(WithoutEnding(file));
  _left |= failed;
}

void RecordFiles::_SetTime() {
  timespec time;
  clock_gettime(CLOCK_REALTIME, &time);
  const int64_t moment = time.tv_sec * int64_t{1'000'000'000} + time.tv_nsec;
  const bool back = std::exchange(_moment, moment) > moment;
  if (back) _EndFile();
  const bool first = _now == 0;
  _now = time.tv_sec;
  _logger.SetSeconds(time.tv_sec);
  if (first || back) _logger.SetSplitSeconds(_split);
}

void RecordFiles::_NameNextFile() {
  std::error_code ignored;
  for (time_t moment = static_cast<time_t>(_now);; ++moment) {
    tm parts;
    char date[16], clock[16], text[32];
    gmtime_r(&moment, &parts);
    strftime(date, sizeof date, "%Y-%m-%d", &parts);
    strftime(clock, sizeof clock, "%H:%M:%S", &parts);
    strftime(text, sizeof text, "-%Y-%m-%dT%H%M%S", &parts);
    const std::string base = _disk.Path() + '/' + _name + text;
    const auto taken = [&](const char* ending) { return std::filesystem::exists(base + ending, ignored); };
    if (taken(".txt.part") || taken(".txt") || taken(".zip")) continue;
    _logger.SetDateTime(date, clock);
    _file = base + ".txt.part";
    return;
  }
}

// But for the one that is open.
void RecordFiles::_FinishLeftovers() {
  namespace fs = std::filesystem;
  constexpr size_t kEnding = std::string_view("-2024-05-01T123000.txt.part").size();
  std::error_code error;  // the disk may go at any moment
  std::vector<fs::path> parts;
  for (fs::directory_iterator entry(_disk.Path(), error), end; entry != end; entry.increment(error)) {
    const std::string name = entry->path().filename();
    if (name.size() <= kEnding || !name.ends_with(".txt.part") || entry->path() == _file) continue;
    const std::string_view whose(name.data(), name.size() - kEnding);
    if (_family.empty() ? whose == _name : whose.ends_with(_family)) parts.push_back(entry->path());
  }
  _left = false;
  for (const fs::path& part : parts) {
    fs::path text = part;
    text.replace_extension();
    while (fs::exists(text, error)) text.replace_filename(text.stem().string() + "-2.txt");
    CutBehindLastLine(part);
    if (fs::exists(part, error)) fs::rename(part, text, error);
    _left |= static_cast<bool>(error);
  }
}
