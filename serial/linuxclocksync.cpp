#include "serial/linuxclocksync.h"

#include <algorithm>
#include <cassert>
#include <iostream>

namespace {

constexpr int32_t kSecond = 1'000'000'000;    // in nanoseconds
constexpr int32_t kMaxIntegral = kSecond;     // so that a sum with one more offset still has 32 bits
constexpr int32_t kMaxAdjustment = 516'222;   // parts per billion
constexpr int32_t kFrequencyPerBillion = 65;  // 2^16 / 1000, cut
constexpr int32_t kSamplesPerCycle = 2;

int32_t Bounded(int32_t value, int32_t bound) {
  return std::clamp(value, -bound, bound);
}

}  // namespace

LinuxClockSync::LinuxClockSync(bool verbose, int32_t integralDivisor, int32_t proportionalDivisor)
    : _integralDivisor(integralDivisor), _proportionalDivisor(proportionalDivisor), _verbose(verbose) {
  assert(integralDivisor != 0 && proportionalDivisor != 0);
}

bool LinuxClockSync::Sync(const TimeVal& a, const TimeVal& b, long* frequency) {
  const TimeVal offset = a - b;
  // Values that came in far from normal may hide the seconds among their nanoseconds.
  const bool is_step = offset.seconds != 0 || offset.nanoseconds <= -kSecond || offset.nanoseconds >= kSecond;
  if (is_step) {
    _minOffset = _drift = _integral = _lastOffset = _sampleCount = 0;
  } else {
    _minOffset = std::min(_minOffset, offset.nanoseconds);
    _lastOffset = offset.nanoseconds;
    if (++_sampleCount < kSamplesPerCycle) return false;
  }
  const int32_t result = is_step ? 0 : _correction();
  if (frequency == nullptr) return false;
  *frequency = result;
  return true;
}

int32_t LinuxClockSync::_correction() {
  _drift = _minOffset;
  _minOffset = _lastOffset;  // the newest sample opens the next cycle
  _integral = Bounded(_integral + _drift, kMaxIntegral);
  const int32_t p = _drift / _proportionalDivisor;
  const int32_t i = _integral / _integralDivisor;
  const int32_t adjustment = Bounded(p + i, kMaxAdjustment);
  const int32_t result = adjustment * -kFrequencyPerBillion;
  if (_verbose)
    std::cout << " count=" << _sampleCount << " drift=" << _drift << " adj=" << adjustment << " p=" << p << " i=" << i
              << " adj=" << adjustment << " freq=" << result << '\n';
  _sampleCount = 0;
  return result;
}
