// Columns and values into the filter: its lines are those of a plain second form, sums included.
//
// Input: lines of fields between tabs. The first byte says what they are: "I" names asked for, "X" names refused, "H"
// the header's names, and anything else values.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "logging/includecols.h"

namespace {

using Fields = std::vector<std::string>;
using Names = std::set<std::string>;

struct Plain {
  bool IsWanted(const std::string& name) const { return asked.count(name) != 0 && refused.count(name) == 0; }

  bool IsKept(const std::string& column) const {
    if (column == "SECONDS" || column == "NANOSECONDS") return true;
    if (column == "CHK" || column == "MSEC") return false;
    return IsWanted(column);
  }

  std::string Line(const std::string& key, const std::string& date, const std::string& time,
                   const Fields& fields) const {
    std::ostringstream line;
    line << key;
    if (IsWanted("DATE")) line << '\t' << date;
    if (IsWanted("TIME")) line << '\t' << time;
    for (size_t i = 0; i < fields.size() && i < columns.size(); ++i)
      if (IsKept(columns[i])) line << '\t' << fields[i];
    line << '\t';
    return line.str();
  }

  std::string Header() const { return Line("DATAH", "DATE", "TIME", columns) + "CHK\n"; }

  std::string Data(const Fields& values) const {
    const std::string line = Line("DATA", "1970-01-01", "00:00:00", values);
    uint8_t sum = 0;
    for (const char c : line) sum = static_cast<uint8_t>(sum + static_cast<uint8_t>(c));
    char field[8];
    std::snprintf(field, sizeof field, "%3d\n", sum);
    return line + field;
  }

  Names asked, refused;
  Fields columns;
};

void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  IncludeCols filter;
  Plain plain;
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line.substr(line.empty() ? 0 : 1));
    Fields fields;
    for (std::string field; std::getline(words, field, '\t');) fields.push_back(field);
    const Names names(fields.begin(), fields.end());
    switch (line.empty() ? 0 : line[0]) {
      case 'I':
        plain.asked = names;
        Require(filter.ColsToInclude(names) == plain.Header());
        break;
      case 'X':
        plain.refused = names;
        Require(filter.ColsToExclude(names) == plain.Header());
        break;
      case 'H':
        plain.columns = fields;
        Require(filter.ApplyFilterToDATAH(fields) == plain.Header());
        break;
      default:
        Require(filter.ApplyFilterToDATA(fields) == plain.Data(fields));
    }
  }
  return 0;
}
