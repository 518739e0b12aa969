// Data lines as the analyser has them (docs/data-files.md), for records of other instruments: a header that names the
// columns, and a line for each record.
//
//   SONICH  SECONDS     NANOSECONDS  U     V     ...  FLAGS  CHK
//   SONIC   1714566600  100000000    0.12  1.5   ...  0       28
//
// Values stand with as many digits as it takes to read them back as they were.

#pragma once

#include <charconv>
#include <cmath>
#include <initializer_list>
#include <string>
#include <string_view>

#include "runtime/datachecksum.h"
#include "runtime/numbertext.h"

inline std::string DataLineHeader(const std::string& key, std::initializer_list<const char*> values) {
  std::string line = key + "H\tSECONDS\tNANOSECONDS\t";
  for (const char* name : values) line.append(name) += '\t';
  return line + "FLAGS\tCHK\n";
}

// A record of runtime/measurementrecord.h, of a given moment.
template <class Record>
std::string DataLine(std::string_view key, const Record& record) {
  std::string line(key);
  line.reserve(256);
  AppendInteger(line += '\t', record.seconds);
  AppendInteger(line += '\t', record.nanoseconds);
  for (const double value : record.values) {
    char text[32];
    const char* const end = std::to_chars(text, text + sizeof text, value).ptr;
    line += '\t';
    line.append(std::isnan(value) ? "nan" : std::string_view(text, static_cast<size_t>(end - text)));
  }
  AppendInteger(line += '\t', record.errorFlags);
  line += '\t';
  AppendCheckSum(line);
  return line;
}
