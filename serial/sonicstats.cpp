#include "serial/sonicstats.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int kPeriod = 10;    // seconds
constexpr size_t kRoom = 400;  // intervals: more than come in a period at 32 Hz, the fastest that instruments send

// Milliseconds. Seconds times 1000 wouldn't fit 32 bits.
double Interval(const TimeVal& time) {
  return time.nanoseconds / 1'000'000.0 + time.seconds * 1'000.0;
}

}  // namespace

SonicStats::SonicStats() {
  _intervals.reserve(kRoom);
}

void SonicStats::Update(const SonicData& data) {
  const TimeVal time(data.seconds, data.nanoseconds);
  _intervals.push_back(Interval(time - _lastTime));
  _lastTime = time;
  if (time <= _nextReport) return;
  _nextReport = time + TimeVal(kPeriod);
  _Report();
  _intervals.clear();
}

// Of no interval at all, which can't be, the formulas make -1999.8 and not-a-number.
void SonicStats::_Report() {
  double longest = -999.9, shortest = 999.9, sum = 0, squares = 0;
  for (const double interval : _intervals) {
    longest = std::max(longest, interval);
    shortest = std::min(shortest, interval);
    sum += interval;
  }
  const auto count = static_cast<double>(_intervals.size());
  _intervalRange = longest - shortest;
  _meanInterval = sum / count;
  for (const double interval : _intervals) squares += (interval - _meanInterval) * (interval - _meanInterval);
  _intervalDeviation = std::sqrt(squares / count);
}
