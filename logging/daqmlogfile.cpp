#include "logging/daqmlogfile.h"

#include <iostream>

#include "runtime/datachecksum.h"
#include "runtime/filesystem.h"
#include "runtime/localtime.h"
#include "runtime/numbertext.h"

namespace {

constexpr long kClockIsSet = 1'000'000'000;  // seconds since 1970

std::string Date(const tm& local) {
  std::string text;
  AppendInteger(text, int64_t{local.tm_year} + 1900, 4);
  AppendInteger(text += '-', local.tm_mon + 1, 2);
  AppendInteger(text += '-', local.tm_mday, 2);
  return text;
}

std::string TimeOfDay(const tm& local, const char* separator) {
  std::string text;
  AppendInteger(text, local.tm_hour, 2);
  AppendInteger(text += separator, local.tm_min, 2);
  AppendInteger(text += separator, local.tm_sec, 2);
  return text;
}

std::string Heading(std::string line, const std::vector<std::string>& columns) {
  for (const std::string& column : columns) (line += column) += '\t';
  return line += "CHK\n";
}

}  // namespace

DAQMLogFile::DAQMLogFile(const std::string& directory, const std::string& suffix, const std::string& prefix)
    : _directory(directory), _suffix(suffix), _prefix(prefix) {
  if (!_directory.ends_with('/')) _directory += '/';
}

std::string DAQMLogFile::_WriteHeader(const std::string& word, bool date, const std::vector<std::string>& names,
                                      const std::vector<std::string>& units) {
  return Heading(word + "H\tSECONDS\tNANOSECONDS\t" + (date ? "DATE\tTIME\t" : ""), names) +
         Heading(word + "U\tseconds\tnanoseconds\t" + (date ? "date\ttime\t" : ""), units);
}

void DAQMLogFile::SetHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) {
  _station_header = _WriteHeader(_prefix, false, names, units);
  _file_header = _WriteHeader("DATA", true, names, units);
  _file.close();
}

std::string DAQMLogFile::_WriteData(const std::string& word, bool date, long time, const std::string& values) {
  constexpr size_t kMore = 64;  // bytes, for what stands around word and values
  std::string line;
  line.reserve(word.size() + values.size() + kMore);
  AppendInteger((line += word) += '\t', time);
  line += "\t0\t";
  if (date) {
    const tm local = LocalTime(time);
    ((line += Date(local)) += '\t').append(TimeOfDay(local, ":")) += '\t';
  }
  line += values;
  AppendCheckSum(line);
  return line;
}

void DAQMLogFile::SetData(long time, const std::vector<double>& values) {
  constexpr size_t kField = 8;  // bytes, of most values with their tab
  std::string text;
  text.reserve(values.size() * kField);
  for (const double value : values) {
    AppendDouble(text, value);
    text += '\t';
  }
  _station_data = _WriteData(_prefix, false, time, text);
  _file_data = _WriteData("DATA", true, time, text);
  _time = time;
}

bool DAQMLogFile::LogData() try {
  _written = false;
  if (_time < kClockIsSet) return false;
  const tm local = LocalTime(_time);
  if (local.tm_yday != _yday) {
    _yday = local.tm_yday;
    _file.close();
  }
  const bool opens = !_file.is_open();
  if (opens) _Open(local);
  if (!_file.is_open()) return false;
  if (opens) _file << _file_header;
  _file << _file_data << std::flush;
  _written = _file.good();
  return opens;
} catch (const std::exception& error) {
  std::cout << "ERROR logging DAQM data: " << error.what() << std::endl;
  return false;
}

void DAQMLogFile::_Open(const tm& local) {
  _filename.clear();
  if (!IsDirectory(_directory)) MkDirectory(_directory);
  _filename = _directory + Date(local) + '-' + TimeOfDay(local, "") + _suffix;
  _file.rdbuf()->pubsetbuf(nullptr, 0);
  _file.open(_filename);
}
