// A data line of the soil instrument with all its fields, bytes to listener, beside the bare tokenizer over the same
// bytes.
//
// Its time goes through mktime(3), which looks on the disk whether the host's zone is still the same, but for a zone
// that the environment names. So the line is measured in either: what lies between them is that look.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <sstream>
#include <string>

#include "bench/turns.h"
#include "config/xml_parser.h"
#include "soil/soildevice.h"

namespace {

struct Sink : SoilDevice::Listener {
  void GotSoilData(SoilData& data) override { fields += data.floats.size() + data.longs.size(); }
  size_t fields = 0;
};

std::string Line() {
  std::string line = "<SR><DATA><TIME>20240501123059</TIME>";
  int number = 0;
  for (const char* name : {"BENCHPRESSURE",
                           "BENCHTEMP",
                           "BOARDTEMP",
                           "CHAMBERTEMP",
                           "CO2",
                           "CO2ABS",
                           "COURSE",
                           "CPRIME",
                           "FLUX",
                           "H2O",
                           "H2OABS",
                           "LATITUDE",
                           "LONGITUDE",
                           "RH",
                           "SPEED",
                           "STATUS",
                           "T1",
                           "T2",
                           "T3",
                           "T4",
                           "V1",
                           "V2",
                           "V3",
                           "V4",
                           "VIN"})
    line += std::string("<") + name + ">" + std::to_string(++number * 1.2345) + "</" + name + ">";
  for (const char* name : {"RAWCO2", "RAWCO2REF", "RAWH2O", "RAWH2OREF"})
    line += std::string("<") + name + ">" + std::to_string(2'154'321 + ++number) + "</" + name + ">";
  return line + "</DATA></SR>\n";
}

void DataLine(benchmark::State& state, const char* zone) {
  zone != nullptr ? setenv("TZ", zone, 1) : unsetenv("TZ");
  SoilDevice device(false);
  Sink sink;
  device.RegisterListener(&sink);
  const std::string line = Line();
  const auto ours = [&] { device.HeadGotLine(line); };
  const auto tokens = [&] {
    std::istringstream in(line);
    XMLParser parser(in);
    size_t bytes = 0;
    for (auto kind = parser.GetNextToken(); kind != XMLParser::END_DOC; kind = parser.GetNextToken())
      bytes += parser.GetTokenString().size();
    benchmark::DoNotOptimize(bytes);
  };
  Turns({{"device", Batch(ours)}, {"tokenizer", Batch(tokens)}}).Measure(state);
  benchmark::DoNotOptimize(sink.fields);
}
BENCHMARK_CAPTURE(DataLine, HostZone, nullptr)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(DataLine, NamedZone, ":/etc/localtime")->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
