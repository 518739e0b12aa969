// Data lines into a file: Logger beside a bare std::ofstream, and beside fwrite(3).

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <memory>

#include "bench/silence.h"
#include "bench/turns.h"
#include "emulators/temp_directory.h"
#include "logging/logger.h"

namespace {

constexpr int kLines = 20'000;  // of each job in a round

void WriteLines(benchmark::State& state) {
  const TempDirectory directory{TempDirectory::Memory()};
  const std::string line = "DATA\t" + std::string(static_cast<size_t>(state.range(0)) - 6, '1') + "\n";
  const std::string stream_path = directory.Path() + "/stream", file_path = directory.Path() + "/file";

  const auto own = [&] {
    const Silence silence;
    Logger logger("", "UTC", false);
    logger.SetMountPath(directory.Path());
    logger.SetHostname("head");
    logger.SetDateTime("2024-05-01", "12:30:00");
    for (int i = 0; i < kLines; ++i) logger.WriteDATA(line, 0);
  };
  const auto stream = [&] {
    std::ofstream out(stream_path);
    for (int i = 0; i < kLines; ++i) out << line;
  };
  const auto file = [&] {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(std::fopen(file_path.c_str(), "w"), std::fclose);
    for (int i = 0; i < kLines; ++i) std::fwrite(line.data(), 1, line.size(), out.get());
  };
  Turns({{"", own}, {"ofstream", stream}, {"fwrite", file}}).Measure(state);
  state.SetItemsProcessed(state.iterations() * kLines);
}
BENCHMARK(WriteLines)->Arg(200)->Arg(1500)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
