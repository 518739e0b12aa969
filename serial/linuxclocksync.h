// The control law that disciplines a clock: a stream of time differences, as between a pulse per second and the system
// clock, becomes a frequency correction. It computes and reports; whoever calls applies the result, and steps the clock
// where the difference is a second or more.
//
// A proportional and an integral term over the minimum of each cycle of two samples, not over their mean or the last
// one: what delays the reading of a clock only ever adds to a sample. After the first sample of all the minimum starts
// from 0, so that a first positive offset counts as none.
//
// Frequencies are in units of 2^-16 parts per million, as in adjtimex(2), within +/-33,554,430 (512 ppm). Positive: the
// clock behind `a` has to run faster. All arithmetic has 32 bits; its bounds keep it from overflow.

#pragma once

#include <cstdint>

#include "runtime/timeval.h"

class LinuxClockSync {
 public:
  // The divisors aren't 0: each term is the nanoseconds of its sum, divided, in parts per billion. With a sample a
  // second, a clock that is off by 20 ppm settles where the proportional divisor is 2 or more and the integral one 4 or
  // more and not below the proportional one; most smaller ones swing for ever, by milliseconds. Larger ones settle more
  // slowly, and follow late readings less. A clock that is off by more wants larger ones: examples/clock-sync.cpp
  // tells. verbose: each correction prints a line on standard output.
  LinuxClockSync(bool verbose, int32_t integralDivisor, int32_t proportionalDivisor);

  // Takes the offset a - b. True when there is a correction, which then stands in `frequency`; 0 after a step, which
  // also makes the law forget all samples. Without `frequency` a correction is lost, although the sums have moved.
  bool Sync(const TimeVal& a, const TimeVal& b, long* frequency);

 private:
  int32_t _correction();  // ends the cycle

  const int32_t _integralDivisor;
  const int32_t _proportionalDivisor;
  const bool _verbose;
  // Nanoseconds.
  int32_t _minOffset = 0;  // of this cycle
  int32_t _drift = 0;      // the minimum that made the last correction
  int32_t _integral = 0;   // within +/-1,000,000,000
  int32_t _lastOffset = 0;
  int32_t _sampleCount = 0;  // since the last correction
};
