// What an hour of a whole station costs in processor time, as of a day: analyser at 40 lines a second, sonic at 20,
// GPS at 10, five modules, soil chamber and Campbell logger, recorded into memory. Needs the right to mount.
//
//   day_s        seconds of processor time in a day, without the emulators' and without packing
//   emulators_s  the emulators'
//   packing_s    the zip programs'
//   all_kernel   the kernel's share of the first two
//   records      in a day

#include <benchmark/benchmark.h>
#include <jsoncpp/json/json.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "daqm/daqm.h"
#include "emulators/analyser.h"
#include "emulators/campbelllogger.h"
#include "emulators/daqmbus.h"
#include "emulators/gps_receiver.h"
#include "emulators/pulse_source.h"
#include "emulators/soilinstrument.h"
#include "emulators/sonic_anemometer.h"
#include "emulators/temp_directory.h"
#include "station/station.h"
#include "tests/support/poll_runner.h"
#include "tests/support/silence.h"
#include "tests/support/virtual_time.h"

namespace {

constexpr int kMinute = 60'000;  // milliseconds
constexpr int kHour = 60 * kMinute;
constexpr double kHours = 24;

double emulators = 0;  // seconds of processor time
bool own_mounts = false;

// On their timers the emulators do all that they do unasked.
template <class Emulator>
struct Metered : Emulator {
  using Emulator::Emulator;
  void HandleTimeout() override {
    const double start = Now();
    Emulator::HandleTimeout();
    emulators += Now() - start;
  }
  static double Now() {
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
  }
};

struct Used {
  double user, kernel;
  static Used By(int who) {
    rusage usage = {};
    getrusage(who, &usage);
    const auto seconds = [](const timeval& t) {
      return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
    };
    return {seconds(usage.ru_utime), seconds(usage.ru_stime)};
  }
};

class Site {
 public:
  Site() {
    _time.Hurry();  // the emulators have a hundred timers a second, each of which spins for what is left of a
                    // millisecond
    for (const char* name : {"/zones", "/disk"}) std::filesystem::create_directory(_directory.Path() + name);
    std::ofstream(_directory.Path() + "/zones/UTC").flush();
    DAQM::port_to_dev.at(1).device = _bus.Path();
    Settings settings;
    settings.name = "bog";
    settings.state = _directory.Path() + "/state";
    settings.disk.path = _directory.Path() + "/disk";
    settings.disk.board = true;
    settings.control.port = 0;
    settings.analyser.port = _analyser.Port();
    settings.gps.device = _gps.Path();
    settings.gps.pulse = _pulse.Path();
    settings.sonic.device = _sonic.Path();
    settings.campbell.port = _campbell.Port();
    settings.clock.mode = "watch";
    _station.emplace(
        settings, ZonePlaces{_directory.Path() + "/zones", _directory.Path() + "/link", _directory.Path() + "/zone"});
    _station->Answer(
        "<tarno><moorlog><cfg><gpstype>Hemisphere</gpstype><head>127.0.0.1</head><soil>127.5.1.9</soil><logger>"
        "<loggeraddress>127.0.0.1</loggeraddress></logger><daqm><port>1</port></daqm></cfg></moorlog></tarno>");
    _analyser.SetRate(Analyser::kFastest);
  }
  double Records() const {
    Json::Value status;
    std::istringstream(_station->Status()) >> status;
    double records = 0;
    for (const Json::Value& instrument : status["instruments"]) records += instrument["records"].asDouble();
    return records;
  }

 private:
  VirtualTime _time;
  const TempDirectory _directory{TempDirectory::Memory()};
  Metered<Analyser> _analyser;
  Metered<GPSReceiver> _gps{GPSReceiver::Hemisphere, 57'600};
  Metered<PulseSource> _pulse;
  Metered<SonicAnemometer> _sonic{57'600, AnemometerSettings{.rate = 20}};
  Metered<SoilInstrument> _soil{"127.5.1.9", SoilInstrument::Settings{}};
  Metered<DAQMBus> _bus{DAQMBus::Settings{}};
  CampbellLogger _campbell;
  std::optional<Station> _station;
};

void BM_Day(benchmark::State& state) {
  if (!own_mounts || mount("none", "/sys/class", "tmpfs", 0, nullptr) != 0)
    return state.SkipWithError("needs the right to mount");
  const Silence silence;
  std::filesystem::create_directories("/sys/class/gpio/gpio13");
  for (const char* name : {"active_low", "direction", "value"})
    std::ofstream("/sys/class/gpio/gpio13/" + std::string(name)).flush();
  prctl(PR_SET_CHILD_SUBREAPER, 1);  // the zip programs
  for ([[maybe_unused]] auto _ : state) {
    Site site;
    PollFor(5 * kMinute);
    const double records = site.Records();
    emulators = 0;
    const Used before = Used::By(RUSAGE_SELF), packed = Used::By(RUSAGE_CHILDREN);
    PollFor(kHour);
    const Used after = Used::By(RUSAGE_SELF);
    while (wait(nullptr) > 0) continue;
    const Used packing = Used::By(RUSAGE_CHILDREN);
    const double kernel = after.kernel - before.kernel, all = after.user - before.user + kernel;
    state.counters["day_s"] = kHours * (all - emulators);
    state.counters["emulators_s"] = kHours * emulators;
    state.counters["packing_s"] = kHours * (packing.user + packing.kernel - packed.user - packed.kernel);
    state.counters["all_kernel"] = kernel / all;
    state.counters["records"] = kHours * (site.Records() - records);
  }
}
BENCHMARK(BM_Day)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

// A namespace of its own wants a process of one thread.
int main(int argc, char** argv) {
  own_mounts = unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
