// Looks at data files as they come: is every line one that was written so, and is anything missing between two?
//
//   sums      of each data line (runtime/datachecksum.h)
//   columns   as many as the header in force has
//   times     none before the one in front of it, and no gap longer than is given; the columns SECONDS and NANOSECONDS
//   form      headers, head blocks and data lines (docs/data-files.md), day files (logging/daqmlogfile.h); lines cut
//   off
//
// One object for each file; it holds a line and a header at a time. Any thread.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

class Verifier {
 public:
  // `found`: called with the line's number, from 1 up, and what is wrong with it. `gap`: in seconds; 0: none is told.
  Verifier(double gap, std::function<void(int64_t line, const std::string& what)> found)
      : _gap(gap), _found(std::move(found)) {}

  // The file's next bytes; then its end.
  void Feed(std::string_view bytes);
  void End();

  // The file goes on where another one has ended: a gap in between is told as well. Times may begin in front of it,
  // as where the clock was set back.
  void Follow(int64_t last) { _last = last; }
  int64_t Last() const { return _last; }

  int64_t Lines() const { return _line; }
  int64_t Records() const { return _records; }

 private:
  void _Look(std::string_view line);
  void _LookAtHeader(std::string_view line, std::string_view key);
  void _LookAtData(std::string_view line);
  void _LookAtTime(std::string_view line);
  void _Find(const std::string& what) { _found(_line, what); }

  const double _gap;
  const std::function<void(int64_t, const std::string&)> _found;
  std::string _rest;  // of a line whose end hasn't come
  int64_t _line = 0;
  int64_t _records = 0;

  // The header in force.
  std::string _key;  // of its data lines, with the tab; empty: none yet
  std::ptrdiff_t _columns = 0;
  int _seconds = -1, _nanoseconds = -1;  // columns, counted from the first behind the key; -1: none

  int64_t _last = INT64_MIN;  // nanoseconds since 1970, of the last record; INT64_MIN: none yet
  bool _timed = false;        // it was this file's
};
