// The moments of records into the statistics, beside a plain form that keeps moments as whole nanoseconds.
//
// Input: a moment in 8 bytes, seconds and nanoseconds, and then steps from record to record of 4 bytes each: in
// nanoseconds, or in milliseconds when the lowest bit is set.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "serial/sonicstats.h"

namespace {

constexpr int64_t kSecond = 1'000'000'000;          // nanoseconds, as all of these
constexpr int64_t kMost = kSecond * 1'000'000'000;  // from 1970: no difference needs more than 32 bits

class Plain {
 public:
  void Update(int64_t time) {
    _intervals.push_back(static_cast<double>(time - _last) / 1e6);
    _last = time;
    if (time <= _next) return;
    _next = time + 10 * kSecond;
    const auto count = static_cast<double>(_intervals.size());
    double longest = -999.9, shortest = 999.9;
    mean = deviation = 0;
    for (const double interval : _intervals) {
      longest = std::max(longest, interval);
      shortest = std::min(shortest, interval);
      mean += interval / count;
    }
    for (const double interval : _intervals) deviation += std::pow(interval - mean, 2) / count;
    range = longest - shortest;
    deviation = std::sqrt(deviation);
    accuracy = 1e-9 * std::max({1.0, std::abs(longest), std::abs(shortest)});
    _intervals.clear();
  }
  double mean = 0, range = 0, deviation = 0, accuracy = 0;

 private:
  int64_t _next = 0, _last = 0;
  std::vector<double> _intervals;
};

int32_t Word(const uint8_t* data) {
  int32_t word;
  std::memcpy(&word, data, sizeof word);
  return word;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 8) return 0;
  Plain plain;
  SonicStats stats;
  int64_t time = Word(data) * kSecond + Word(data + 4);
  for (size_t at = 8;; at += 4) {
    time = std::clamp(time, -kMost, kMost);
    SonicData record;
    record.seconds = static_cast<int32_t>(time / kSecond);
    record.nanoseconds = static_cast<int32_t>(time % kSecond);
    stats.Update(record);
    plain.Update(time);
    const auto same = [&](double a, double b) { return std::abs(a - b) <= plain.accuracy; };
    if (!same(stats.MeanInterval(), plain.mean) || !same(stats.IntervalRange(), plain.range) ||
        !same(stats.IntervalDeviation(), plain.deviation))
      abort();
    if (at + 4 > size) return 0;
    const int64_t step = Word(data + at);
    time += (step & 1) == 0 ? step : step * 1'000'000;
  }
}
