// A sonic anemometer's bytes to the callback, beside the least that could be done with them: find the carriage return,
// compare the sum, split at the commas and run strtod(3) over each field. And what the statistics cost a record.
//
//   Messages  the time shown is that of the whole input; ns/message is ours, own/bare the ratio, news/message how often
//             memory was allocated for one
//   Update    a period of ten seconds at 32 Hz with its end, beside Boost.Accumulators for the same results; ns/record
//             is ours, news/period how often memory was allocated after the first one

#include <algorithm>
#include <boost/accumulators/accumulators.hpp>
#include <boost/accumulators/statistics.hpp>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bench/news.h"
#include "bench/turns.h"
#include "emulators/pty.h"
#include "emulators/sonic_anemometer.h"
#include "serial/sonicdevice.h"
#include "serial/sonicstats.h"

namespace {

namespace acc = boost::accumulators;

constexpr size_t kChunk = 32;  // bytes of one read: about what has come when the loop wakes up at 57600 bps
constexpr int kMessages = 320;
constexpr int kPeriod = 320;  // records of ten seconds at 32 Hz

struct Sum : SonicDeviceListener {
  void GotSonicData(int, const SonicData& data) override { sum += data.values[0] + data.values[8]; }
  double sum = 0;
};

struct Device {
  Device() { device.RegisterListener(&listener); }
  void Feed(const std::string& bytes) {
    for (size_t at = 0; at < bytes.size(); at += kChunk)
      device.ReceivedChars(device.Reader(), bytes.data() + at, static_cast<int>(std::min(kChunk, bytes.size() - at)));
  }
  Pty pty;
  SonicDevice device{pty.Path(), 1, 57600, false};
  Sum listener;
};

double Bare(const std::string& bytes) {
  double sum = 0;
  for (const char *line = bytes.data(), *const end = line + bytes.size(), *next; line != end; line = next) {
    const char* const stop = static_cast<const char*>(std::memchr(line, '\r', end - line));
    if (stop == nullptr) break;
    next = stop + 1 == end ? end : stop + 2;
    unsigned char check = 0;
    for (const char* c = line + 1; c < stop - 3; ++c) check ^= static_cast<unsigned char>(*c);
    if (stop - line < 7 || std::strtoul(stop - 2, nullptr, 16) != check) continue;
    for (const char* field = line; (field = static_cast<const char*>(std::memchr(field, ',', stop - field)));) {
      ++field;
      sum += std::strtod(field, nullptr);
    }
  }
  return sum;
}

void Messages(benchmark::State& state, int inputs) {
  std::string bytes;
  for (int number = 0; number < kMessages; ++number)
    bytes += SonicAnemometer::Message(SonicAnemometer::ReadingOf(number, inputs));
  Device device;
  Turns turns({{"own", [&] { device.Feed(bytes); }}, {"bare", [&] { benchmark::DoNotOptimize(Bare(bytes)); }}});
  turns.Measure(state);
  const int64_t before = news;
  device.Feed(bytes);
  state.counters["news/message"] = static_cast<double>(news - before) / kMessages;
  state.counters["ns/message"] = turns.Median(0) / kMessages * 1e9;
  benchmark::DoNotOptimize(device.listener.sum);
}
BENCHMARK_CAPTURE(Messages, four_inputs, 4)->UseManualTime();
BENCHMARK_CAPTURE(Messages, no_inputs, 0)->UseManualTime();

// Walks on from where it stopped.
class Records {
 public:
  const SonicData& Next() {
    _nanoseconds += 31'250'000;
    _data.seconds = static_cast<int32_t>(_nanoseconds / 1'000'000'000);
    _data.nanoseconds = static_cast<int32_t>(_nanoseconds % 1'000'000'000);
    return _data;
  }

 private:
  int64_t _nanoseconds = 1'700'000'000'000'000'000;
  SonicData _data;
};

// The same results for the same intervals.
class Accumulated {
 public:
  void Update(const SonicData& data) {
    const double time = data.seconds * 1e3 + data.nanoseconds / 1e6;
    _intervals(time - _last);
    _last = time;
    if (acc::count(_intervals) < kPeriod) return;
    benchmark::DoNotOptimize(acc::mean(_intervals));
    benchmark::DoNotOptimize(acc::max(_intervals) - acc::min(_intervals));
    benchmark::DoNotOptimize(std::sqrt(acc::variance(_intervals)));
    _intervals = {};
  }

 private:
  double _last = 0;
  acc::accumulator_set<double, acc::stats<acc::tag::mean, acc::tag::variance, acc::tag::min, acc::tag::max>> _intervals;
};

void Update(benchmark::State& state) {
  SonicStats stats;
  Accumulated accumulated;
  Records ours, theirs;
  const auto period = [](auto& to, Records& from) {
    for (int i = 0; i < kPeriod; ++i) to.Update(from.Next());
  };
  Turns turns({{"own", [&] { period(stats, ours); }}, {"boost", [&] { period(accumulated, theirs); }}});
  turns.Measure(state);
  const int64_t before = news;
  period(stats, ours);
  period(stats, ours);
  state.counters["news/period"] = static_cast<double>(news - before) / 2;
  state.counters["ns/record"] = turns.Median(0) / kPeriod * 1e9;
  benchmark::DoNotOptimize(stats.MeanInterval());
}
BENCHMARK(Update)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
