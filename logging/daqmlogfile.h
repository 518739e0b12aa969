// Day files of the rows that a DAQM delivers, and the same rows as lines for the station's own log.
//
// A file begins with two lines of headings and goes on with a line for each row, tab-separated and closed by the line
// checksum (runtime/datachecksum.h). It ends with the local day, or when the headings change; there is no other way to
// end it but destruction. Its name is the local time of its first row: "2024-05-01-123000" and the suffix; a second
// file within one second replaces the first, which is meant. Every line is handed to the system at once.
// docs/data-files.md has an example.
//
// A file that can't be opened loses the row without a word, and the next row tries again. A write that fails, as when
// the disk is full, leaves the file in its error state: its rows are lost, without a word too, until it ends. IsWritten
// tells of each row.
//
// No callbacks; any one thread. The zone in force is read anew for each row (tzset(3)).

#pragma once

#include <cstdint>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

class DAQMLogFile {
 public:
  // `directory` is made when it is missing, one level; an empty one is "/". `prefix`: the first word of the lines for
  // the station.
  DAQMLogFile(const std::string& directory, const std::string& suffix, const std::string& prefix);

  // Ends the file.
  void SetHeader(const std::vector<std::string>& names, const std::vector<std::string>& units);
  // `time`: seconds since 1970. Six significant digits; a missing value is "nan". Writes nothing.
  void SetData(long time, const std::vector<double>& values);
  // Writes the row once for each call; a row from before September 2001 isn't written, as its clock hasn't been set.
  // True when that opened a file. An exception on the way is told on standard output.
  bool LogData();
  // Whether the last call of that has written its row.
  bool IsWritten() const { return _written; }
  // The path of the file that is open; empty: none.
  std::string File() const { return _file.is_open() ? _filename : ""; }

  // Two lines, names and units, and one: what the file has but date and time, with the prefix in place of "DATA".
  const std::string& StationHeader() const { return _station_header; }
  const std::string& StationData() const { return _station_data; }

 private:
  static std::string _WriteHeader(const std::string& word, bool date, const std::vector<std::string>& names,
                                  const std::vector<std::string>& units);
  static std::string _WriteData(const std::string& word, bool date, long time, const std::string& values);
  void _Open(const tm& local);

  std::string _directory;  // ends in "/"
  const std::string _suffix;
  const std::string _prefix;
  std::string _filename;  // of the present file, or the last one
  std::string _station_header;
  std::string _station_data;
  std::string _file_header;
  std::string _file_data;
  std::ofstream _file;  // without a buffer: it would offer again what a failed write has half written
  long _time = 0;       // of the row
  int32_t _yday = 0;    // of the file
  bool _written = false;
};
