// The control law of the clock beside a plain second form of it, which counts in 64 bits: they agree on every answer
// and every correction, and no sum of the law ever needs more than 32 bits.
//
// Input: a byte for each divisor, and a group of five bytes for each sample: how its offset is made, and four of it.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "serial/linuxclocksync.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

constexpr int64_t kSecond = 1'000'000'000;  // nanoseconds

class SecondForm {
 public:
  SecondForm(int64_t integral_divisor, int64_t proportional_divisor) : _i(integral_divisor), _p(proportional_divisor) {}

  // `offset` in nanoseconds. False: no correction.
  bool Sync(int64_t offset, int64_t& frequency) {
    frequency = 0;
    if (std::abs(offset) >= kSecond) {
      _minimum = _integral = _samples = 0;
      return true;
    }
    _minimum = std::min(_minimum, offset);
    if (++_samples % 2 == 1) return false;
    _integral = std::clamp(_integral + _minimum, -kSecond, kSecond);
    frequency = -65 * std::clamp<int64_t>(_minimum / _p + _integral / _i, -516'222, 516'222);
    _minimum = offset;
    return true;
  }

 private:
  const int64_t _i, _p;
  int64_t _minimum = 0, _integral = 0, _samples = 0;
};

// A divisor of any size and sign; never 0.
int32_t Divisor(uint8_t code) {
  const int32_t size = code < 0x80 ? code + 1 : static_cast<int32_t>(uint32_t{3} << (code % 32 % 30));
  return code % 7 == 3 ? -size : size;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  LinuxClockSync law(false, Divisor(data[0]), Divisor(data[1]));
  SecondForm expected(Divisor(data[0]), Divisor(data[1]));
  for (size_t at = 2; at + 5 <= size; at += 5) {
    int32_t number;
    std::memcpy(&number, data + at + 1, sizeof number);
    const uint8_t kind = data[at];
    if (kind % 4 == 0) number >>= 10;
    // Most are below a second.
    const int64_t offset = kind < 0xf8 ? number % kSecond : number;
    // The moments are normal, and anywhere.
    const TimeVal b(number % 1'000 * 1'000'000, number % 1'000 * 1'000);
    const TimeVal a = b + TimeVal(static_cast<int32_t>(offset / kSecond), static_cast<int32_t>(offset % kSecond));
    long frequency = 1;
    const bool told = law.Sync(a, b, (kind & 2) != 0 ? nullptr : &frequency);
    int64_t result = 0;
    const bool due = expected.Sync(offset, result);
    REQUIRE(told == (due && (kind & 2) == 0));
    REQUIRE(frequency == (told ? result : 1));
  }
  return 0;
}
