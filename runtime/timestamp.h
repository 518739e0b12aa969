// A calendar moment as seconds since 1989-01-01 00:00:00, held in one double with the fraction of the second.
//
// This is not Unix time, and nothing in the value says whether it is UTC or local: that is up to its holder. The
// calendar runs in cycles of four years from the epoch, without a century rule, which is right for 1989 to 2099.
// Fields outside that range make 0, the epoch; nothing here throws for a value.
//
// Text forms go through streams. Each stream carries its own form in one of its words (std::ios_base::xalloc): bits 0
// to 7 the time separator, 8 to 15 the date separator, 16 to 23 the date-time separator, bit 24 says that these three
// are in force, bit 25 that the text stands in double quotes. Without bit 24 the form is "YYYY-MM-DD HH:MM:SS". A
// separator of zero leaves its field out: "YYYYMMDDTHHMMSS".
//
// Thread: the values are plain data. The stream word's slot and the zone are found on first use without a lock, on
// the poll thread.

#pragma once

#include <compare>
#include <istream>
#include <ostream>
#include <string>

class Timestamp {
 public:
  // Seconds since the epoch, taken as they come.
  Timestamp(double seconds = 0) : _seconds(seconds) {}
  // A year below 89 is one of 2000, from 89 to 99 one of 1900. Months beyond 1 to 12 carry into the year, and days,
  // hours, minutes and seconds of any size or sign carry on.
  Timestamp(int year, int month, int day, int hour, int min, double sec);

  double get() const { return _seconds; }

  // The calendar of the whole seconds, which are an unsigned count of 32 bits: a value below 0 or beyond 2^32 wraps,
  // and one that is no number at all counts as 0.
  int year() const;
  int month() const;    // 1 to 12
  int day() const;      // 1 to 31
  int yearDay() const;  // 1 to 366
  int weekDay() const;  // 1 to 7, 1 is Sunday
  bool isLeap() const;
  int hour() const;
  int min() const;
  double sec() const;  // seconds within the minute, with their fraction

  // The zone is that of the first call of these three: a later change of zone or of daylight saving is not followed,
  // and the date converted plays no part. There and back is exact for whole seconds.
  static std::string local_timezone_name();
  void convert_local_to_utc();
  void convert_utc_to_local();

  // The present local time with its microseconds, by the zone in force now. Throws ErrnoError.
  void assign_local_time();

  // Sets the stream's separators, and its form to unquoted.
  static void set_separators(std::ios_base& stream, char date, char datetime, char time);
  // Leaves the separators as they are.
  static void set_quoted(std::ios_base& stream);

  // A whole date is required, all behind it is optional: the time may stop after any field, time separators and
  // quotes are not insisted on. Success leaves the stream good, end of file included, and the text behind the last
  // field that fits unread. Without a date the stream has failed and the value is what it was. Numbers are those
  // of the stream's own extraction.
  std::istream& _read(std::istream& in);
  // Seconds have the stream's own formatting, so six significant digits unless told otherwise, and nothing is carried:
  // 59.9999999 is written as 60. The stream's fill is a blank afterwards, whatever it was.
  std::ostream& _write(std::ostream& out) const;

  friend bool operator==(const Timestamp&, const Timestamp&) = default;
  friend auto operator<=>(const Timestamp& a, const Timestamp& b) { return a._seconds <=> b._seconds; }

 private:
  struct _Form;
  static long& _form_word(std::ios_base& stream);
  static _Form _form(std::ios_base& stream);
  static void _init_tz();

  static int _xalloc_index;     // below 0 until first used
  static bool _is_tz_inited;    // the two below are filled
  static int _tz_offset;        // seconds, positive: local time is ahead of UTC (east)
  static const char* _tz_name;  // owned by the C library

  double _seconds;
};

inline Timestamp operator+(const Timestamp& a, const Timestamp& b) {
  return a.get() + b.get();
}
inline Timestamp operator-(const Timestamp& a, const Timestamp& b) {
  return a.get() - b.get();
}

inline std::istream& operator>>(std::istream& in, Timestamp& value) {
  return value._read(in);
}
inline std::ostream& operator<<(std::ostream& out, const Timestamp& value) {
  return value._write(out);
}
