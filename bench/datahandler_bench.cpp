// The data handler: a DATA line of 25 columns to three listeners, beside a bare loop that sums the bytes, splits at
// white space into a vector of strings, and copies line and vector once for each listener; and what unknown first words
// cost.
//
//   own/bare   our time divided by the loop's; the handler copies the line twice for each listener
//   news       allocations a line
//   bytes/key  of the heap, for each of a million different unknown first words

#include <malloc.h>

#include <cctype>
#include <cstdint>
#include <string>
#include <vector>

#include "analyser/datahandler.h"
#include "bench/news.h"
#include "bench/turns.h"
#include "runtime/datachecksum.h"

namespace {

constexpr int kColumns = 25;
constexpr int kListeners = 3;

std::string Line() {
  std::string line = "DATA\t1714566600\t100000000\t";
  for (int i = 2; i < kColumns - 1; ++i) line += std::to_string(i * 1.03125) + '\t';
  AppendCheckSum(line);
  return line;
}

struct Ear : DataHandler::Listener {
  void DataHandler_GotLine(std::string line) override { bytes += line.size(); }
  void DataHandler_GotDATA(std::string line) override { bytes += line.size(); }
  void DataHandler_GotDATAColumns(std::vector<std::string> words) override { columns += words.size(); }
  size_t bytes = 0, columns = 0;
};

[[gnu::noinline]] void Hear(std::string line, std::vector<std::string> words) {
  benchmark::DoNotOptimize(line.data());
  benchmark::DoNotOptimize(words.data());
}

bool Bare(const std::string& line) {
  unsigned int sum = 0;
  for (size_t i = 0; i < line.size() - 4; ++i) sum += static_cast<unsigned char>(line[i]);
  std::vector<std::string> words;
  const auto is_space = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
  for (size_t at = 0; at < line.size();) {
    while (at < line.size() && is_space(line[at])) ++at;
    size_t end = at;
    while (end < line.size() && !is_space(line[end])) ++end;
    if (end > at) words.push_back(line.substr(at, end - at));
    at = end;
  }
  for (int i = 0; i < kListeners; ++i) Hear(line, words);
  return sum % 256 == static_cast<unsigned int>(std::stoi(words.back()));
}

void BM_DispatchLine(benchmark::State& state) {
  const std::string line = Line();
  DataHandler handler;
  Ear ears[kListeners];
  for (Ear& ear : ears) handler.RegisterListener(&ear);
  handler.DispatchLine(line);
  if (!Bare(line) || ears[0].columns != kColumns) state.SkipWithError("the line isn't right");
  Turns turns({{"own", Batch([&] { handler.DispatchLine(line); })},
               {"bare", Batch([&] { benchmark::DoNotOptimize(Bare(line)); })}});
  turns.Measure(state);
  const int64_t before = news;
  handler.DispatchLine(line);
  state.counters["news"] = static_cast<double>(news - before);
}
BENCHMARK(BM_DispatchLine)->UseManualTime();

void BM_UnknownKeys(benchmark::State& state) {
  constexpr int kKeys = 1'000'000;
  for ([[maybe_unused]] auto _ : state) {
    DataHandler handler;
    const size_t before = mallinfo2().uordblks;
    for (int i = 0; i < kKeys; ++i) handler.DispatchLine('D' + std::to_string(i) + "\t  0\n");
    state.counters["bytes/key"] = static_cast<double>(mallinfo2().uordblks - before) / kKeys;
  }
  state.SetItemsProcessed(state.iterations() * kKeys);
}
BENCHMARK(BM_UnknownKeys)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
