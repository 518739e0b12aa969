// What an hour of a whole station costs in processor time, as of a day: analyser at 40 lines a second, sonic at 20,
// GPS at 10, five modules, soil chamber and Campbell logger, recorded into memory. The station is a process of its own,
// the emulators are another one, with one virtual clock for both (bench/sharedclock.h). Needs the right to mount.
//
//   day_s        seconds of processor time in a day, of the station's process, without those of the next line
//   passing_s    what it takes to pass the turn where a real poll(2) sleeps
//   kernel       the kernel's share of day_s
//   packing_s    the zip programs'
//   wakeups      of the station's process, in a day
//   pss_kB       its proportional memory after the hour, the benchmark's own included
//   records      in a day
//
// And one line of the analyser on the whole road, from the socket to the file, in a station that has nothing else:
// script/instructions counts what the loop's passes take for it.

#include <benchmark/benchmark.h>
#include <jsoncpp/json/json.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "bench/sharedclock.h"
#include "bench/silence.h"
#include "daqm/daqm.h"
#include "emulators/own_host.h"
#include "emulators/poll_runner.h"
#include "emulators/site.h"
#include "emulators/temp_directory.h"
#include "emulators/virtual_time.h"
#include "net/socket.h"
#include "station/station.h"
#include "tests/station/site_settings.h"

namespace {

constexpr int kMinute = 60'000;  // milliseconds
constexpr int kHour = 60 * kMinute;
constexpr double kHours = 24;

bool own_mounts = false;

// Seconds of processor time.
struct Used {
  double user = 0, kernel = 0;
  static Used By(int who) {
    rusage usage = {};
    getrusage(who, &usage);
    const auto seconds = [](const timeval& t) {
      return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
    };
    return {seconds(usage.ru_utime), seconds(usage.ru_stime)};
  }
  Used operator-(const Used& other) const { return {user - other.user, kernel - other.kernel}; }
  double All() const { return user + kernel; }
};

// What the station's process is told by the instruments', and tells.
struct Talk {
  char bus[64], document[1'024];
  bool asked;
  Used used;
  double passing, wakeups, records, pss;
};

// The station's process, from its first turn on.
void Live(const SharedClock& clock, Talk& talk, const TempDirectory& directory) {
  DAQM::port_to_dev.at(1).device = talk.bus;
  Settings settings = SettingsIn(directory);
  settings.disk.board = true;
  settings.clock.mode = "watch";
  Station station(settings, ZonesIn(directory));
  station.Answer(talk.document);
  for (;;) {
    PollProcessor::Instance().Poll(-1);
    if (!std::exchange(talk.asked, false)) continue;
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    talk.used = Used::By(RUSAGE_SELF);
    talk.passing = clock.Passing();
    talk.wakeups = static_cast<double>(usage.ru_nvcsw);
    std::ifstream rollup("/proc/self/smaps_rollup");
    for (std::string word; rollup >> word && word != "Pss:";) continue;
    rollup >> talk.pss;
    Json::Value status;
    std::istringstream(station.Status()) >> status;
    talk.records = 0;
    for (const Json::Value& instrument : status["instruments"]) talk.records += instrument["records"].asDouble();
  }
}

// For the station's process to read.
void WriteDown(const Site& site, const TempDirectory& directory, Talk& talk) {
  std::filesystem::create_directory(directory / "disk");
  SettingsFor(site, directory);
  site.modules.Path().copy(talk.bus, sizeof talk.bus - 1);
  site.Document().copy(talk.document, sizeof talk.document - 1);
}

void BM_Day(benchmark::State& state) {
  if (!own_mounts) return state.SkipWithError("needs the right to mount");
  MountGpio(13);
  prctl(PR_SET_CHILD_SUBREAPER, 1);  // the zip programs
  for ([[maybe_unused]] auto _ : state) {
    const Silence silence;
    const TempDirectory directory{TempDirectory::Memory()};
    Talk& talk = MakeShared<Talk>();
    VirtualTime time;
    // The emulators have a hundred timers a second, each of which spins for what is left of a millisecond.
    time.Hurry();
    SharedClock clock(time);
    clock.Start([&] { Live(clock, talk, directory); });
    time.Advance(7);  // no two of them send at the same moment
    Site site({.fast = true, .soil = "127.5.1.9"});
    WriteDown(site, directory, talk);
    const auto ask = [&] {
      talk.asked = true;
      clock.Pass();
      return talk;
    };
    PollFor(5 * kMinute + 13);
    for (const int rate : {1, 20}) site.sonic.Set({.rate = rate});
    const Used packed = Used::By(RUSAGE_CHILDREN);
    const Talk before = ask();
    PollFor(kHour);
    const Talk after = ask();
    while (waitpid(-1, nullptr, WNOHANG) > 0) continue;
    const Used used = after.used - before.used;
    const double passing = after.passing - before.passing;
    state.counters["day_s"] = kHours * (used.All() - passing);
    state.counters["passing_s"] = kHours * passing;
    state.counters["kernel"] = 1 - used.user / (used.All() - passing);
    state.counters["packing_s"] = kHours * (Used::By(RUSAGE_CHILDREN) - packed).All();
    state.counters["wakeups"] = kHours * (after.wakeups - before.wakeups);
    state.counters["pss_kB"] = after.pss;
    state.counters["records"] = kHours * (after.records - before.records);
  }
}
BENCHMARK(BM_Day)->Iterations(1)->Unit(benchmark::kSecond);

// `lines` of the analyser, each with the passes of the loop that take it to its file.
void BM_Line(benchmark::State& state) {
  const auto lines = static_cast<int>(state.range(0));
  std::vector<std::string> sent;
  sent.reserve(static_cast<size_t>(lines));
  for (int i = 0; i < lines; ++i) sent.push_back(Analyser::DataLine(1'700'000'000 + i / 40, i % 40 * 25'000'000, i));
  for ([[maybe_unused]] auto _ : state) {
    const Silence silence;
    const TempDirectory directory{TempDirectory::Memory()};
    VirtualTime time;
    time.Hurry();
    Socket door(Socket::FamilyIPv4, Socket::TypeStream, 0);
    SocketAddress address("127.0.0.1");
    door.Bind(address);
    door.Listen(1);
    door.GetSockName(&address);
    Settings settings;
    settings.name = "bog";
    settings.state = directory.Path() + "/state";
    settings.disk.path = directory.Path();
    settings.disk.board = true;
    settings.control.port = 0;
    settings.analyser.port = address.Port();
    directory.Write("zones/UTC", "");
    Station station(settings, ZonesIn(directory));
    station.Answer("<tarno><moorlog><cfg><head>127.0.0.1</head></cfg></moorlog></tarno>");
    Socket peer = door.Accept(nullptr);
    peer.Write(Analyser::Headers());
    PollFor(kMinute);
    time.SetGrace(1'000);  // a line that the kernel hasn't brought yet is waited for
    for (const std::string& line : sent) {
      peer.Write(line);
      time.Advance(25);
      PollProcessor::Instance().Poll(-1);
      PollProcessor::Instance().Poll(-1);  // the quiet pass behind an event
    }
  }
}
BENCHMARK(BM_Line)->Arg(1'000)->Arg(5'000)->Iterations(1);

}  // namespace

// A namespace of its own wants a process of one thread.
int main(int argc, char** argv) {
  own_mounts = EnterOwnMounts();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
