// Timestamps from and to text, beside strptime(3) and strftime(3): the bare call, which stops at a broken-down time,
// and the call with the conversion from or to seconds that a Timestamp includes. The peers know whole seconds only.
//
// The time shown is that of a batch of a thousand.

#include <ctime>
#include <istream>
#include <ostream>
#include <streambuf>
#include <string>

#include "bench/turns.h"
#include "runtime/timestamp.h"

namespace {

constexpr char kFormat[] = "%Y-%m-%d %H:%M:%S";
constexpr char kText[] = "2024-02-29 23:59:58.125";
constexpr time_t kUnixTime = 1709251198;  // the same moment

// A fixed text to read again and again, or room to write in.
struct Buffer : std::streambuf {
  explicit Buffer(const std::string& in_text = std::string(64, ' ')) : text(in_text) { Rewind(); }
  void Rewind() {
    char* const begin = text.data();
    setg(begin, begin, begin + text.size());
    setp(begin, begin + text.size());
  }
  std::string text;
};

void Read(benchmark::State& state, size_t length) {
  Buffer buffer(std::string(kText, length));
  std::istream in(&buffer);
  Timestamp value;
  tm fields{};
  const auto own = [&] {
    buffer.Rewind();
    in >> value;
    benchmark::DoNotOptimize(value);
  };
  const auto bare = [&] {
    benchmark::DoNotOptimize(strptime(kText, kFormat, &fields));
    benchmark::DoNotOptimize(fields);
  };
  const auto seconds = [&] {
    bare();
    benchmark::DoNotOptimize(timegm(&fields));
  };
  Turns({{"own", Batch(own)}, {"strptime", Batch(bare)}, {"strptime+timegm", Batch(seconds)}}).Measure(state);
}

void Write(benchmark::State& state, double fraction) {
  Buffer buffer;
  std::ostream out(&buffer);
  Timestamp value(2024, 2, 29, 23, 59, 58 + fraction);
  time_t now = kUnixTime;
  tm fields{};
  gmtime_r(&now, &fields);
  char text[64];
  const auto own = [&] {
    buffer.Rewind();
    benchmark::DoNotOptimize(value);
    out << value;
    benchmark::ClobberMemory();
  };
  const auto bare = [&] {
    benchmark::DoNotOptimize(fields);
    benchmark::DoNotOptimize(strftime(text, sizeof text, kFormat, &fields));
    benchmark::ClobberMemory();
  };
  const auto seconds = [&] {
    benchmark::DoNotOptimize(now);
    gmtime_r(&now, &fields);
    bare();
  };
  Turns({{"own", Batch(own)}, {"strftime", Batch(bare)}, {"gmtime+strftime", Batch(seconds)}}).Measure(state);
}

BENCHMARK_CAPTURE(Read, whole, 19)->UseManualTime();
BENCHMARK_CAPTURE(Read, fraction, 23)->UseManualTime();
BENCHMARK_CAPTURE(Write, whole, 0)->UseManualTime();
BENCHMARK_CAPTURE(Write, fraction, 0.125)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
