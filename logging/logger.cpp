#include "logging/logger.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>
#include <limits>
#include <utility>

#include "runtime/runprogram.h"
#include "runtime/str_util.h"

namespace {

constexpr int kMinute = 60'000;  // milliseconds
constexpr size_t kBlock = 8192;  // bytes

constexpr const char* kStateWords[] = {"none", "logging", "not logging", "error"};

}  // namespace

Logger::Logger(const std::string& device_text, std::string zone, bool flag)
    : PollTimer(-1, true), _device_text(device_text), _construct_flag(flag), _timezone(std::move(zone)) {
  SetTimeout(kMinute);
}

Logger::~Logger() {
  _logging = false;
  _CloseLogFile(false);
}

void Logger::HandleTimeout() {
  AddTimeout(kMinute);
}

void Logger::StartLogging() {
  _logging = true;
}

void Logger::StopLogging() {
  _logging = false;
  _CloseLogFile(false);
}

void Logger::SetHostname(const std::string& hostname) {
  _SetHeaderText(_hostname, hostname);
}
void Logger::SetSN(const std::string& sn) {
  _SetHeaderText(_sn, sn);
}
void Logger::SetVersion(const std::string& version) {
  _SetHeaderText(_version, version);
}
void Logger::SetTimezone(const std::string& zone) {
  _SetHeaderText(_timezone, zone);
}

void Logger::_SetHeaderText(std::string& stored, const std::string& text) {
  if (text == stored) return;
  stored = text;
  _CloseLogFile(true);
}

void Logger::SetDateTime(const std::string& date, const std::string& time) {
  _date = date;
  _time = time;
}

void Logger::SetDATAH(const std::string& line) {
  _datah = line;
  _WriteToLogFile(line, false);
}

void Logger::WriteDATA(const std::string& line, long /*seconds*/) {
  if (IsSplitDue()) {
    _CloseLogFile(true);
    _ComputeNextSplitSeconds();
  }
  _WriteToLogFile(line, true);
}

void Logger::SetMountPath(const std::string& path) {
  _mount_path = path;
}

void Logger::SetSeconds(long seconds) {
  _seconds = static_cast<int32_t>(seconds);
}

void Logger::SetSplitSeconds(int seconds) {
  _split_seconds = seconds;
  _ComputeNextSplitSeconds();
}

int Logger::USBState() {
  const int state = _mount_path.empty() ? StateNoDisk
                    : !_file.is_open()  ? StateNotLogging
                    : _file.fail()      ? StateError
                                        : StateLogging;
  if (state != _usb_state) {
    _usb_state = state;
    std::cout << "Logger::USBState: " << kStateWords[state] << std::endl;
  }
  return state;
}

void Logger::DiskMounted(const std::string& /*path*/) {}
void Logger::DiskUnmounted() {}
void Logger::_UpdateUSBSpace() {}

bool Logger::_OpenLogFile() {
  if (!_logging || _mount_path.empty() || _hostname.empty() || _time.empty() || _date.empty()) return false;
  _file_base = _mount_path + '/' + _hostname + '-' + _date + 'T' + StripCharacter(_time, ':');
  const std::string part = _file_base + ".txt.part";

  _file.close();
  _file.clear();
  _file.rdbuf()->pubsetbuf(nullptr, 0);
  // What a power cut has left under this name is continued, behind a header of its own.
  _file.open(part, std::ios::out | std::ios::app | std::ios::ate);
  if (_file.fail() || !_file.is_open()) return false;
  std::cout << "Logging to file: " << part << std::endl;

  _WriteToFile(_file, "Model:\tGPS Logger\nFile Type:\t2\nInstrument:\t" + _hostname + "\nSerial Number:\t" + _sn +
                          "\nSoftware Version:\t" + _version + "\nTimestamp:\t" + _date + ' ' + _time +
                          "\nTimezone:\t" + _timezone + '\n');
  _WriteToFile(_file, _datah);
  return true;
}

void Logger::_CloseLogFile(bool zip) {
  if (!_file.is_open()) return;
  _FlushPending(_file);
  _file.close();
  _file.clear();
  const std::string part = _file_base + ".txt.part";
  const std::string text = _file_base + ".txt";
  [[maybe_unused]] const int renamed = std::rename(part.c_str(), text.c_str());
  std::cout << "Stopped logging to file: " << part << std::endl;
  if (!zip) return;

  std::cout << "Zipping up file: " << text << std::endl;
  try {
    RunProgramAsDaemon("/bin/nice -n 10 /usr/bin/zip -T -m -j " + _file_base + ".zip " + text);
  } catch (const std::exception& error) {
    // No process to be had. The file is safe unpacked, and the line that waits for the next one must not be lost.
    std::cout << "ERROR: Unable to zip " << text << ": " << error.what() << std::endl;
  }
}

void Logger::_WriteToLogFile(const std::string& line, bool open_if_closed) {
  if (!_file.is_open() && (!open_if_closed || !_OpenLogFile())) return;
  _WriteToFile(_file, line);
}

void Logger::_WriteToFile(std::ofstream& file, const std::string& text) {
  if (_pending.size() + text.size() > kBlock) _FlushPending(file);
  if (text.size() > kBlock)
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
  else if (!file.fail())
    _pending += text;
  if (!file.fail()) _usb_space -= static_cast<float>(text.size());
}

void Logger::_FlushPending(std::ofstream& file) {
  file.write(_pending.data(), static_cast<std::streamsize>(_pending.size()));
  _pending.clear();
}

// The next whole multiple of the period behind the present. Where 32 bits of seconds end, it stays at their end.
void Logger::_ComputeNextSplitSeconds() {
  if (_split_seconds < 1) return;
  const int64_t next = _split_seconds + int64_t{_seconds / _split_seconds} * _split_seconds;
  _next_split_seconds = static_cast<int32_t>(std::min<int64_t>(next, std::numeric_limits<int32_t>::max()));
}
