// An exact signed interval or instant, where a double would lose digits: clocks, GPS and pulse times.
//
// Normalised, the nanoseconds are below 1,000,000,000 in size and have the sign of the seconds: half a second before
// zero is 0 and -500,000,000. Only sums and differences are normalised; construction takes the fields as they come,
// and so does a pulse device that fills the 8 bytes itself. Comparison goes by the fields and wants normal values.
//
// Plain data; seconds beyond 32 bits wrap.

#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <tuple>

class TimeVal {
 public:
  TimeVal(int32_t in_seconds = 0, int32_t in_nanoseconds = 0) : seconds(in_seconds), nanoseconds(in_nanoseconds) {}

  TimeVal& operator+=(const TimeVal& other);
  TimeVal& operator-=(const TimeVal& other);

  // One step towards the normal form, which is enough for a sum or difference of normal values.
  void _normalize();

  // Seconds, ".", nanoseconds in nine digits: -0.500000000. The stream's fill is a blank afterwards.
  std::ostream& write(std::ostream& out) const;

  friend bool operator==(const TimeVal&, const TimeVal&) = default;
  friend auto operator<=>(const TimeVal& a, const TimeVal& b) {
    return std::tie(a.seconds, a.nanoseconds) <=> std::tie(b.seconds, b.nanoseconds);
  }

  int32_t seconds;
  int32_t nanoseconds;
};

static_assert(sizeof(TimeVal) == 8, "the record of a pulse device");

inline TimeVal operator+(TimeVal a, const TimeVal& b) {
  return a += b;
}
inline TimeVal operator-(TimeVal a, const TimeVal& b) {
  return a -= b;
}

inline std::ostream& operator<<(std::ostream& out, const TimeVal& value) {
  return value.write(out);
}
