// A line of the modules' bus, from its bytes to the handler of its message, beside bare jsoncpp over the same text, and
// with its values taken in; its sum beside memchr(3); a row of 60 columns into the day file beside fprintf(3).

#include <benchmark/benchmark.h>
#include <jsoncpp/json/json.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench/silence.h"
#include "bench/turns.h"
#include "daqm/daqm.h"
#include "emulators/own_host.h"
#include "emulators/pty.h"
#include "emulators/temp_directory.h"
#include "logging/daqmlogfile.h"

namespace {

constexpr int kRows = 1'000;  // of each job in a round

// A module's report of so many columns under some key.
std::string Body(const std::string& key, int columns) {
  std::string body = "{\"0\":{\"" + key + "\":[0,1714561200,{";
  for (int column = 1; column <= columns; ++column)
    body += (column == 1 ? "\"" : ",\"") + std::to_string(column) + "\":" + std::to_string(column * 1.2345);
  return body + "}]}}";
}

// The bus of a session that nobody listens to.
struct Bus {
  Bus() {
    const Silence silence;
    BecomeRoot();
    EnterOwnNetwork();
    Gpio::_debug = true;
    session = std::make_unique<DAQM>(false, false);
    device = new DAQMDevice(pty.Path(), 13, session.get(), false);
  }
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;
  ~Bus() {
    const Silence silence;
    delete device;
  }
  void Hear(const std::string& line) { device->ReceivedChars(reader, line.data(), static_cast<int>(line.size())); }
  Pty pty;
  LinuxTTYReader reader{pty.Path()};
  std::unique_ptr<DAQM> session;
  DAQMDevice* device = nullptr;
};

void Line(benchmark::State& state) {
  Bus bus;
  const int columns = static_cast<int>(state.range(0));
  // The handler of this message does nothing with what it gets.
  const std::string text = Body("heathlinkreadyresponse", columns);
  const std::string line = FrameDAQMLine(text), report = FrameDAQMLine(Body("data", columns));
  Json::Reader reader;
  const auto parse = [&] {
    Json::Value root;
    benchmark::DoNotOptimize(reader.parse(text, root, true));
  };
  Turns turns({{"line", Batch([&] { bus.Hear(line); })}, {"jsoncpp", Batch(parse)}, {"report", Batch([&] {
                                                                                       bus.Hear(report);
                                                                                     })}});
  turns.Measure(state);
  state.counters["report/jsoncpp"] = turns.Median(2) / turns.Median(1);
  state.counters.erase("own/report");
}
BENCHMARK(Line)->Arg(12)->Arg(60)->UseManualTime()->Unit(benchmark::kMillisecond);

void Sum(benchmark::State& state) {
  const std::string text = Body("data", 60);
  const auto own = [&] { benchmark::DoNotOptimize(_CalculateChecksum(text)); };
  const auto search = [&] { benchmark::DoNotOptimize(std::memchr(text.data(), '\n', text.size())); };
  Turns({{"sum", Batch(own)}, {"memchr", Batch(search)}}).Measure(state);
  state.counters["bytes"] = static_cast<double>(text.size());
}
BENCHMARK(Sum)->UseManualTime()->Unit(benchmark::kMicrosecond);

// The station's line is made along with the file's.
void DayFile(benchmark::State& state) {
  const TempDirectory directory{TempDirectory::Memory()};
  std::vector<double> values;
  for (int column = 1; column <= 60; ++column) values.push_back(column * 1.2345);
  DAQMLogFile log(directory.Path(), ".txt", "DAQM");
  const auto own = [&] {
    log.SetHeader({}, {});
    for (int i = 0; i < kRows; ++i) {
      log.SetData(1'714'561'200 + i, values);
      log.LogData();
    }
  };
  const std::string path = directory.Path() + "/peer";
  const auto print = [&] {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(std::fopen(path.c_str(), "w"), std::fclose);
    for (int i = 0; i < kRows; ++i) {
      std::fprintf(out.get(), "DATA\t%d\t0\t2024-05-01\t13:00:00\t", 1'714'561'200 + i);
      for (const double value : values) std::fprintf(out.get(), "%g\t", value);
      std::fprintf(out.get(), "%3d\n", 123);
      std::fflush(out.get());
    }
  };
  Turns({{"own", own}, {"fprintf", print}}).Measure(state);
  state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(DayFile)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
