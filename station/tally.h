// What has come from an instrument: how much, how fast, how long ago. Thread: the poll loop's.

#pragma once

#include <cstdint>
#include <ctime>

#include "runtime/pollprocessor.h"

class Tally {
 public:
  void Count() {
    const int64_t period = PollTimer::Now() / kPeriod;
    if (period != _period) {
      _rate = period == _period + 1 ? static_cast<double>(_begun) / kSeconds : 0;
      _begun = 0;
      _period = period;
    }
    ++_begun;
    ++_records;
    _last = time(nullptr);
    _came = PollTimer::Now();
  }
  void CountBadSum() { ++_bad_sums; }

  int64_t Records() const { return _records; }
  int64_t BadSums() const { return _bad_sums; }
  time_t Last() const { return _last; }  // since 1970; 0: none
  // However the system's clock is set meanwhile.
  bool CameWithin(int seconds) const {
    return _records > 0 && PollTimer::Now() - _came <= seconds * int64_t{1'000'000'000};
  }
  // Records a second in the last whole period of ten; 0 when nothing has come since.
  double Rate() const { return PollTimer::Now() / kPeriod - _period < 2 ? _rate : 0; }

 private:
  static constexpr int kSeconds = 10;
  static constexpr int64_t kPeriod = kSeconds * 1'000'000'000LL;  // nanoseconds

  int64_t _records = 0;
  int64_t _bad_sums = 0;
  time_t _last = 0;
  int64_t _came = 0;  // the last one, on PollTimer's clock
  int64_t _period = -1;
  int64_t _begun = 0;  // records in this period
  double _rate = 0;    // of the one before
};
