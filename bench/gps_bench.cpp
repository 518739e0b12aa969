// A GPS receiver's bytes to the callback, beside the least that could be done with them: find the line's end, compare
// its checksum, split it at the commas and run strtod(3) over each field. The peer does so with every sentence; the
// device drops those that it doesn't know after the checksum.
//
//   Sentences   the time shown is that of the whole input; ns/sentence is ours, own/bare the ratio, news/sentence how
//               often memory was allocated for one
//   Day         a day of sentences at 10 Hz: what the device holds afterwards more than before, in bytes

#include <malloc.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "bench/turns.h"
#include "emulators/gps_receiver.h"
#include "emulators/pty.h"
#include "serial/gpsdevice.h"

namespace {
int64_t news = 0;
int64_t held = 0;  // bytes
}  // namespace

[[gnu::noinline]] void* operator new(size_t size) {
  void* const memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  ++news;
  held += static_cast<int64_t>(malloc_usable_size(memory));
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  if (memory != nullptr) held -= static_cast<int64_t>(malloc_usable_size(memory));
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept {
  operator delete(memory);
}

namespace {

constexpr size_t kChunk = 32;  // bytes of one read: about what has come when the loop wakes up at 38400 bps
constexpr int64_t kMidnight = 17'092'512'000;  // tenths of a second since 1970

struct Sum : GPSDevice::Listener {
  void GotGPSData(const GPSData& data) override { sum += data.values[0] + data.values[2]; }
  void GotGPSTime(const TimeVal& time) override { sum += time.seconds; }
  void GotGPSNoFix() override { sum += 1; }
  void GotGPSSatellites(const std::vector<GPSDevice::SatStatus>& satellites) override { sum += satellites[0].prn; }
  double sum = 0;
};

// A unit that is found already.
struct Device {
  Device() { device.RegisterListener(&listener); }
  void Feed(const std::string& bytes) {
    for (size_t at = 0; at < bytes.size(); at += kChunk)
      device.ReceivedChars(device.Reader(), bytes.data() + at, static_cast<int>(std::min(kChunk, bytes.size() - at)));
  }
  Pty pty;
  GPSDevice device{pty.Path(), GPSDevice::TypeHemisphere, false, true};
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
    if (stop - line < 11 || std::strtoul(stop - 2, nullptr, 16) != check) continue;
    for (const char* field = line; (field = static_cast<const char*>(std::memchr(field, ',', stop - field)));) {
      ++field;
      sum += std::strtod(field, nullptr);
    }
  }
  return sum;
}

// Ten seconds of what a receiver sends once it is set up, or of all that it can send: half of that is dropped.
std::string Emulated(bool set_up) {
  std::string bytes;
  for (int tenth = 0; tenth < 100; ++tenth) {
    if (set_up || tenth % 10 == 0) bytes += GPSReceiver::Compose("GPGGA", kMidnight + tenth);
    if (tenth % 10 != 0) continue;
    for (const char* name : {"GPRMC", "GPGSV"}) bytes += GPSReceiver::Compose(name, kMidnight + tenth);
    if (!set_up)
      for (const char* name : {"GPGSA", "GPVTG"}) bytes += GPSReceiver::Compose(name, kMidnight + tenth);
  }
  return bytes;
}

void Sentences(benchmark::State& state, const std::string& bytes) {
  Device device;
  Turns turns({{"own", [&] { device.Feed(bytes); }}, {"bare", [&] { benchmark::DoNotOptimize(Bare(bytes)); }}});
  turns.Measure(state);
  const auto sentences = static_cast<double>(std::count(bytes.begin(), bytes.end(), '\r'));
  const int64_t before = news;
  device.Feed(bytes);
  state.counters["news/sentence"] = static_cast<double>(news - before) / sentences;
  state.counters["ns/sentence"] = turns.Median(0) / sentences * 1e9;
  benchmark::DoNotOptimize(device.listener.sum);
}

void Day(benchmark::State& state) {
  constexpr int kTenths = 864'000;
  Device device;
  int64_t grown = 0;
  for ([[maybe_unused]] auto _ : state) {
    device.Feed(Emulated(true));
    const int64_t before = held;
    for (int tenth = 0; tenth < kTenths; ++tenth) {
      device.Feed(GPSReceiver::Compose("GPGGA", kMidnight + tenth));
      if (tenth % 10 != 0) continue;
      device.Feed(GPSReceiver::Compose("GPRMC", kMidnight + tenth));
      device.Feed(GPSReceiver::Compose("GPGSV", kMidnight + tenth));
    }
    grown += held - before;
  }
  state.counters["grown bytes"] = static_cast<double>(grown);
  if (grown != 0) state.SkipWithError("the device has grown");
}

BENCHMARK_CAPTURE(Sentences, set_up, Emulated(true))->UseManualTime();
BENCHMARK_CAPTURE(Sentences, everything, Emulated(false))->UseManualTime();
BENCHMARK(Day)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
