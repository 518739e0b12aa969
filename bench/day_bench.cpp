// What a day of recording leaves behind: the resident memory of this process, with an analyser's emulator, the link,
// the decoder, the logger and the reclaimer in it, after the first hour of a virtual day and after its last one. The
// connection breaks every ten minutes; files end on the hour and are packed.
//
//   start_kB   before the road is built
//   hour_kB    after an hour
//   grown_kB   from then to the end of the day
//   grown_descriptors, grown_heap  the same of open descriptors and of what the heap holds, in bytes
//   lines      decoded in the day

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "bench/silence.h"
#include "emulators/analyser.h"
#include "emulators/poll_runner.h"
#include "emulators/temp_directory.h"
#include "emulators/virtual_time.h"
#include "examples/recorder.h"

namespace {

constexpr int kMinute = 60'000;  // milliseconds
constexpr int kHour = 60 * kMinute;
constexpr int kHours = 24;
constexpr int kBreak = 10 * kMinute;
constexpr std::chrono::milliseconds kRest(300);  // of real time, for the reclaimer's thread to come to rest
constexpr int kGrace = 100;                      // milliseconds of real time, for a line on its way

struct Held {
  double resident;  // KiB
  double heap;      // bytes
  double descriptors;

  static Held Now() {
    std::this_thread::sleep_for(kRest);
    double pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return {pages * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024, static_cast<double>(mallinfo2().uordblks),
            static_cast<double>(std::distance(begin(open), end(open)))};
  }
};

class Road : CH4Device::Listener {
 public:
  Road() {
    _recorder.RegisterListener(this);
    _recorder.ConnectToAddress(_analyser.Host(), _analyser.Port());
    _time.Schedule(kBreak, [this] { _Break(); });
  }
  ~Road() noexcept override {}  // what it holds could throw

  int Lines() const { return _lines; }

  void Pass(int duration) {
    const auto adjust = [this] {
      _time.SetGrace(_lines == _analyser.LinesSent() ? 0 : kGrace);
      return false;
    };
    PollUntil(adjust, duration);
  }

 private:
  void GotCH4Data(const CH4Data&) override { ++_lines; }

  void _Break() {
    _analyser.HangUp();
    _analyser.ForgetCommands();
    _time.Schedule(kBreak, [this] { _Break(); });
  }

  VirtualTime _time;
  const TempDirectory _directory{TempDirectory::Memory()};
  Analyser _analyser;
  Recorder _recorder{{_directory.Path()}};
  int _lines = 0;
};

void BM_Day(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) {
    const Silence silence;
    const Held start = Held::Now();
    Road road;
    road.Pass(kHour + kMinute);  // with all that the end of the first file entails
    const Held hour = Held::Now();
    for (int i = 1; i < kHours; ++i) road.Pass(kHour);
    const Held day = Held::Now();
    state.counters["start_kB"] = start.resident;
    state.counters["hour_kB"] = hour.resident;
    state.counters["grown_kB"] = day.resident - hour.resident;
    state.counters["grown_descriptors"] = day.descriptors - hour.descriptors;
    state.counters["grown_heap"] = day.heap - hour.heap;
    state.counters["lines"] = road.Lines();
  }
}

BENCHMARK(BM_Day)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
