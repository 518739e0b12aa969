// Thins data lines out: of the columns that a DATAH line names it keeps those that are wanted, and closes each new line
// with a sum of its own (runtime/datachecksum.h).
//
// Pure text: nothing is read or written, and what a value holds is not looked at. Columns and values come as the words
// behind the line's first one, in the order of the header. Thread: any, one at a time for each object.

#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

// Which columns are kept, whatever order the setters were called in:
//
//   SECONDS, NANOSECONDS  always, also where they are refused
//   CHK, MSEC             never; a sum of its own ends each line
//   any other             when it is asked for and not refused
//
// DATE and TIME, asked for and not refused, are put in front as two columns that the header needn't have. They are
// placeholders: nothing sets another text than those below.
class IncludeCols {
 public:
  static constexpr const char* default_date_string = "1970-01-01";
  static constexpr const char* default_time_string = "00:00:00";

  // Each replaces the names asked for, those refused or those of the header, and returns the new header line, line feed
  // included.
  std::string ColsToInclude(const std::set<std::string>& names);
  std::string ColsToExclude(const std::set<std::string>& names);
  std::string ApplyFilterToDATAH(const std::vector<std::string>& columns);

  // The new data line, line feed included. Values beyond the header's columns are dropped, and where there are fewer
  // the line ends early.
  std::string ApplyFilterToDATA(const std::vector<std::string>& values) const;

 private:
  void _Configure();
  std::string _GenerateDATAH() const;
  // The first word, the two columns in front, and those that are kept; with room for the rest of the line.
  std::string _Compose(const char* key, const std::string& date, const std::string& time,
                       const std::vector<std::string>& fields) const;

  std::set<std::string> _include;
  std::set<std::string> _exclude;
  std::vector<std::string> _columns;

  // Derived from the three above. The two indexes are for whoever comes to need the time: nothing reads them.
  std::vector<uint32_t> _keep;  // for each column, 1: kept
  uint32_t _seconds_col = 0;
  uint32_t _nanoseconds_col = 0;
  bool _want_date = false;
  bool _want_time = false;
  bool _want_chk = true;

  std::string _date_text = default_date_string;
  std::string _time_text = default_time_string;
};
