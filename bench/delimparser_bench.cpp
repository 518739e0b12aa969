// Lines of 100 bytes cut by DelimParser, which is fed in chunks of 4 KiB and of 1 MiB, beside std::getline over the
// same bytes in three ways: through a string stream made of all of them at once; through one that is fed with chunks of
// 4 KiB, an unfinished line put in front of the next; and through one that holds everything from the start, so without
// the taking in that is part of the parser's job.
//
// Ends with the ratios, from rounds that alternate between all of them, so that a busy machine slows all.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <sstream>

#include "runtime/delimparser.h"

namespace {

constexpr size_t kLine = 100;
constexpr size_t kTotal = 16 << 20;
constexpr size_t kSmall = 4 << 10;
constexpr size_t kLarge = 1 << 20;

std::string Lines() {
  std::string text;
  for (size_t i = 0; text.size() + kLine <= kTotal; ++i) {
    text += "DATA\t" + std::to_string(i) + '\t';
    text.append(kLine - 1 - text.size() % kLine, 'x');
    text += '\n';
  }
  return text;
}

const std::string& Text() {
  static const std::string text = Lines();
  return text;
}

// The chunks are made beforehand: a reader has its chunk anyway.
std::vector<std::string> Chunks(size_t size) {
  std::vector<std::string> chunks;
  for (size_t i = 0; i < Text().size(); i += size) chunks.push_back(Text().substr(i, size));
  return chunks;
}

size_t Parse(const std::vector<std::string>& chunks) {
  DelimParser parser("\n");
  std::string line;
  size_t lines = 0;
  for (const auto& chunk : chunks) {
    parser.AppendRawData(chunk);
    for (; parser.GetNextDelimString(line); ++lines) benchmark::DoNotOptimize(line.data());
  }
  return lines;
}

size_t Getline(std::istream& in) {
  std::string line;
  size_t lines = 0;
  for (; std::getline(in, line); ++lines) benchmark::DoNotOptimize(line.data());
  return lines;
}

size_t GetlineOfCopy() {
  std::istringstream in(Text());
  return Getline(in);
}

size_t GetlineFed(const std::vector<std::string>& chunks) {
  std::istringstream in;
  std::string line;
  size_t lines = 0;
  for (const auto& chunk : chunks) {
    in.str(line + chunk);
    in.clear();
    for (; std::getline(in, line) && !in.eof(); ++lines) benchmark::DoNotOptimize(line.data());
  }
  return lines;
}

size_t GetlineOfHeld(std::istringstream& held) {
  held.clear();
  held.seekg(0);
  return Getline(held);
}

void Run(benchmark::State& state, const std::function<size_t()>& job) {
  size_t lines = 0;
  for (auto _ : state) lines = job();
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Text().size()));
  if (lines * kLine != Text().size()) state.SkipWithError("lines were lost");
}

// What is measured, in the order of the report.
struct Jobs {
  const std::vector<std::string> small = Chunks(kSmall);
  const std::vector<std::string> large = Chunks(kLarge);
  std::istringstream held{Text()};

  const std::vector<std::pair<const char*, std::function<size_t()>>> list = {
      {"DelimParser/4KiB", [this] { return Parse(small); }},
      {"DelimParser/1MiB", [this] { return Parse(large); }},
      {"getline/all_at_once", GetlineOfCopy},
      {"getline/4KiB", [this] { return GetlineFed(small); }},
      {"getline/already_held", [this] { return GetlineOfHeld(held); }},
  };
};

// Processor time: what else the machine does is not counted.
double Seconds(const std::function<size_t()>& job) {
  const auto now = [] {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
  };
  const double start = now();
  job();
  return now() - start;
}

void PrintRatios(const Jobs& jobs) {
  std::vector<double> best(jobs.list.size(), 1e9);
  for (int round = 0; round < 15; ++round)
    for (size_t i = 0; i < best.size(); ++i) best[i] = std::min(best[i], Seconds(jobs.list[i].second));
  for (size_t peer = 2; peer < best.size(); ++peer)
    std::printf("ratio: throughput against %s: %.2f at 4 KiB, %.2f at 1 MiB\n", jobs.list[peer].first,
                best[peer] / best[0], best[peer] / best[1]);
  std::printf("ratio: time of a line at 1 MiB against 4 KiB: %.2f\n", best[1] / best[0]);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Jobs jobs;
  for (const auto& [name, job] : jobs.list)
    benchmark::RegisterBenchmark(name, [&job = job](benchmark::State& state) { Run(state, job); });
  benchmark::RunSpecifiedBenchmarks();
  PrintRatios(jobs);
  benchmark::Shutdown();
  return 0;
}
