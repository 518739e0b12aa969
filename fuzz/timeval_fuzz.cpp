// Instants of any fields: sums and differences take one step towards the normal form, and are exact, as 64 bits count
// nanoseconds, where both sides were normal. And their order, and their text.
//
// Input: four integers of 32 bits. The last byte, and no fifth integer, tells whether the instants are made normal
// first.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <sstream>
#include <string>

#include "runtime/timeval.h"

namespace {

constexpr int64_t kSecond = 1'000'000'000;

void Require(bool holds) {
  if (!holds) std::abort();
}

// One step, as it is told by the sign of the seconds; these wrap.
TimeVal Step(int64_t seconds, int64_t nanoseconds) {
  const auto wrapped = [](int64_t value) { return static_cast<int32_t>(static_cast<uint32_t>(value)); };
  seconds = wrapped(seconds);
  nanoseconds = wrapped(nanoseconds);
  int carry = 0;
  if (seconds > 0) carry = nanoseconds < 0 ? -1 : nanoseconds >= kSecond ? 1 : 0;
  if (seconds < 0) carry = nanoseconds > 0 ? 1 : nanoseconds <= -kSecond ? -1 : 0;
  if (seconds == 0) carry = nanoseconds >= kSecond ? 1 : nanoseconds <= -kSecond ? -1 : 0;
  return {wrapped(seconds + carry), wrapped(nanoseconds - carry * kSecond)};
}

int64_t Count(const TimeVal& value) {
  return value.seconds * kSecond + value.nanoseconds;
}

TimeVal Normal(const TimeVal& value) {
  const int64_t count = Count(value) / 4;  // so that no sum is beyond 32 bits
  return {static_cast<int32_t>(count / kSecond), static_cast<int32_t>(count % kSecond)};
}

void CheckText(const TimeVal& value) {
  const bool minus = value.seconds == 0 && value.nanoseconds < 0;
  const int64_t fraction = value.seconds < 0 || minus ? std::abs(int64_t{value.nanoseconds}) : value.nanoseconds;
  std::ostringstream out, nanoseconds;
  nanoseconds << std::setfill('0') << std::setw(9) << fraction;
  out << std::setfill('*') << value << std::setw(2) << 7;
  Require(out.str() == (minus ? "-" : "") + std::to_string(value.seconds) + '.' + nanoseconds.str() + " 7");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int32_t fields[4] = {};
  if (size < sizeof fields) return 0;
  std::memcpy(fields, data, sizeof fields);
  TimeVal a(fields[0], fields[1]), b(fields[2], fields[3]);
  const bool normal = data[size - 1] % 2 == 0;
  if (normal) a = Normal(a), b = Normal(b);
  const auto sum = a + b, difference = a - b;
  if (normal) {
    Require(Count(sum) == Count(a) + Count(b) && Count(difference) == Count(a) - Count(b));
    Require((a < b) == (Count(a) < Count(b)) && (a == b) == (Count(a) == Count(b)));
    for (const TimeVal& value : {sum, difference}) {
      Require(std::abs(value.nanoseconds) < kSecond);
      Require(int64_t{value.seconds} * value.nanoseconds >= 0);
    }
  }
  Require(sum == Step(int64_t{a.seconds} + b.seconds, int64_t{a.nanoseconds} + b.nanoseconds));
  Require(difference == Step(int64_t{a.seconds} - b.seconds, int64_t{a.nanoseconds} - b.nanoseconds));
  for (const TimeVal& value : {a, b, sum, difference, TimeVal(0, a.nanoseconds)}) CheckText(value);
  return 0;
}
