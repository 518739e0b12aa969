#include "logging/includecols.h"

#include <algorithm>

#include "runtime/datachecksum.h"

std::string IncludeCols::ColsToInclude(const std::set<std::string>& names) {
  _include = names;
  _Configure();
  return _GenerateDATAH();
}

std::string IncludeCols::ColsToExclude(const std::set<std::string>& names) {
  _exclude = names;
  _Configure();
  return _GenerateDATAH();
}

std::string IncludeCols::ApplyFilterToDATAH(const std::vector<std::string>& columns) {
  _columns = columns;
  _Configure();
  return _GenerateDATAH();
}

std::string IncludeCols::ApplyFilterToDATA(const std::vector<std::string>& values) const {
  std::string line = _Compose("DATA", _date_text, _time_text, values);
  if (!_want_chk) return line += '\n';
  line += '\t';
  AppendCheckSum(line);
  return line;
}

void IncludeCols::_Configure() {
  std::set<std::string> wanted = _include;
  for (const std::string& name : _exclude) wanted.erase(name);

  _seconds_col = _nanoseconds_col = 0;
  _keep.clear();
  for (const std::string& name : _columns) {
    const auto index = static_cast<uint32_t>(_keep.size());
    const bool is_seconds = name == "SECONDS", is_nanoseconds = name == "NANOSECONDS";
    if (is_seconds) _seconds_col = index;
    if (is_nanoseconds) _nanoseconds_col = index;
    const bool is_replaced = name == "CHK" || name == "MSEC";
    _keep.push_back(is_seconds || is_nanoseconds || (!is_replaced && wanted.contains(name)) ? 1 : 0);
  }
  _want_date = wanted.contains("DATE");
  _want_time = wanted.contains("TIME");
  _want_chk = true;
}

std::string IncludeCols::_GenerateDATAH() const {
  std::string line = _Compose("DATAH", "DATE", "TIME", _columns);
  if (_want_chk) line += "\tCHK";
  return line += '\n';
}

std::string IncludeCols::_Compose(const char* key, const std::string& date, const std::string& time,
                                  const std::vector<std::string>& fields) const {
  constexpr size_t kEnds = 16;  // bytes, for the first word and what closes the line
  const size_t count = std::min(fields.size(), _keep.size());
  size_t size = kEnds + date.size() + time.size();
  for (size_t i = 0; i < count; ++i)
    if (_keep[i] != 0) size += 1 + fields[i].size();

  std::string line;
  line.reserve(size);
  line += key;
  const auto append = [&line](const std::string& field) { (line += '\t') += field; };
  if (_want_date) append(date);
  if (_want_time) append(time);
  for (size_t i = 0; i < count; ++i)
    if (_keep[i] != 0) append(fields[i]);
  return line;
}
