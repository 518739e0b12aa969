// A reply of the Campbell logger with 40 fields, bytes of the connection to data line, beside bare jsoncpp over its
// body. And what a virtual week of the pull leaves behind in memory, with the logger's emulator in the process.
//
//   hour_heap     bytes that the heap holds after the first hour
//   grown_heap    more than that after the week
//   grown_kB, grown_descriptors    the same of resident memory and of open descriptors
//   lines, rows   in the week

#include <benchmark/benchmark.h>
#include <jsoncpp/json/reader.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>

#include "bench/silence.h"
#include "bench/turns.h"
#include "csi/pullcsi.h"
#include "emulators/campbelllogger.h"
#include "emulators/poll_runner.h"
#include "emulators/temp_directory.h"
#include "emulators/virtual_time.h"

namespace {

constexpr int kFields = 40;
constexpr int kHour = 3'600'000;  // milliseconds
constexpr int kWeek = 7 * 24;     // hours

// Zones are those of this machine's environment: the clock needs only a tree to read.
struct Clock : LinuxClock {
  explicit Clock(const TempDirectory& directory)
      : LinuxClock(directory.Path(), directory.Path() + "/link", directory.Path() + "/zone", "") {}
};

class Pull : public PullCSI, PullCSI::Listener {
 public:
  Pull(LinuxClock& clock, const std::string& directory, int port)
      : PullCSI(clock, directory, directory, 60, false, port) {
    RegisterListener(this);
  }
  ~Pull() noexcept override = default;
  int64_t Lines() const { return _lines; }

 private:
  void GotCSIHeader(std::string) override {}
  void GotCSIData(std::string line) override {
    ++_lines;
    benchmark::DoNotOptimize(line.data());
  }
  int64_t _lines = 0;
};

std::string Body() {
  std::string fields, values;
  for (int i = 0; i < kFields; ++i) {
    const std::string comma = i == 0 ? "" : ",";
    const bool boolean = i % 10 == 9;
    fields += comma + "{\"name\": \"Field" + std::to_string(i) +
              "\",\"type\": \"xsd:" + (boolean ? "boolean" : "float") +
              "\",\"units\": \"Deg C\",\"process\": \"Smp\",\"settable\": false}";
    values += comma + (boolean ? "true" : std::to_string(i * 1.2345));
  }
  return R"({"head": {"transaction": 0,"signature": 37115,"environment": {"station_name": "bog","table_name": "Public",)"
         R"("model": "logger","serial_no": "1234","os_version": "1","prog_name": "station"},"fields": [)" +
         fields + R"(]},"data": [{"no": 1,"time": "2024-05-01T12:30:00.5","vals": [)" + values +
         R"(]}],"more": false})";
}

void Reply(benchmark::State& state) {
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 0);
  const TempDirectory directory{TempDirectory::Memory()};
  Clock clock(directory);
  Pull pull(clock, directory.Path(), 1);
  const std::string body = Body();
  const std::string reply = "HTTP/1.1 200 OK\r\nServer: logger\r\nContent-Type: application/json\r\nContent-Length: " +
                            std::to_string(body.size()) + "\r\n\r\n" + body;
  const auto ours = [&] { pull.HeadGotRaw(reply); };
  const auto stream = [&] {
    Json::Value root;
    std::istringstream in(body);
    in >> root;
    benchmark::DoNotOptimize(root);
  };
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  const auto bare = [&] {
    Json::Value root;
    reader->parse(body.data(), body.data() + body.size(), &root, nullptr);
    benchmark::DoNotOptimize(root);
  };
  Turns({{"pull", ours}, {"stream", stream}, {"reader", bare}}).Measure(state);
}
BENCHMARK(Reply)->UseManualTime()->Unit(benchmark::kMicrosecond);

struct Held {
  double resident;  // KiB
  double heap;      // bytes
  double descriptors;

  static Held Now() {
    double pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return {pages * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024, static_cast<double>(mallinfo2().uordblks),
            static_cast<double>(std::distance(begin(open), end(open)))};
  }
};

void Week(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) {
    const Silence silence;
    VirtualTime time;
    const TempDirectory directory{TempDirectory::Memory()};
    Clock clock(directory);
    CampbellLogger logger;
    Pull pull(clock, directory.Path(), logger.Port());
    pull.SetCSIHostname("127.0.0.1");
    const auto pass = [&] {
      PollFor(kHour);
      logger.Forget();
    };
    pass();
    const Held hour = Held::Now();
    for (int i = 1; i < kWeek; ++i) {
      // An hour of each day without it.
      if (i % 24 == 5) logger.Refuse();
      pass();
      logger.Listen();
    }
    const Held week = Held::Now();
    state.counters["hour_heap"] = hour.heap;
    state.counters["grown_heap"] = week.heap - hour.heap;
    state.counters["grown_kB"] = week.resident - hour.resident;
    state.counters["grown_descriptors"] = week.descriptors - hour.descriptors;
    state.counters["lines"] = static_cast<double>(pull.Lines());
    const std::filesystem::directory_iterator rows(directory.Path());
    state.counters["rows"] = static_cast<double>(std::distance(begin(rows), end(rows)) - 1);
  }
}
BENCHMARK(Week)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
