#include "runtime/timeval.h"

#include <cstdlib>
#include <iomanip>

namespace {

constexpr int32_t kSecond = 1000000000;  // in nanoseconds

// Sums that wrap where int32_t would overflow.
int32_t Add(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
int32_t Subtract(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

}  // namespace

TimeVal& TimeVal::operator+=(const TimeVal& other) {
  seconds = Add(seconds, other.seconds);
  nanoseconds = Add(nanoseconds, other.nanoseconds);
  _normalize();
  return *this;
}

TimeVal& TimeVal::operator-=(const TimeVal& other) {
  seconds = Subtract(seconds, other.seconds);
  nanoseconds = Subtract(nanoseconds, other.nanoseconds);
  _normalize();
  return *this;
}

void TimeVal::_normalize() {
  const bool borrow = (seconds > 0 && nanoseconds < 0) || (seconds <= 0 && nanoseconds <= -kSecond);
  const bool carry = (seconds >= 0 && nanoseconds >= kSecond) || (seconds < 0 && nanoseconds > 0);
  if (borrow) {
    seconds = Subtract(seconds, 1);
    nanoseconds += kSecond;
  } else if (carry) {
    seconds = Add(seconds, 1);
    nanoseconds -= kSecond;
  }
}

std::ostream& TimeVal::write(std::ostream& out) const {
  const bool negative = seconds < 0 || (seconds == 0 && nanoseconds < 0);
  const int64_t fraction = negative ? std::abs(int64_t{nanoseconds}) : nanoseconds;
  out << std::setfill('0');
  if (negative && seconds == 0) out << '-';  // a zero shows no sign of its own
  out << seconds << '.' << std::setw(9) << fraction << std::setfill(' ');
  return out;
}
