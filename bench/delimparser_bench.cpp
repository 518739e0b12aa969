// Lines of 100 bytes cut by DelimParser, which is fed in chunks of 4 KiB and of 1 MiB, beside std::getline over the
// same bytes in three ways: through a string stream made of all of them at once; through one that is fed with chunks of
// 4 KiB, an unfinished line put in front of the next; and through one that holds everything from the start, so without
// the taking in that is part of the parser's job.
// "own/4KiB" compares the parser fed with 1 MiB to itself fed with 4 KiB.

#include <sstream>
#include <string>
#include <vector>

#include "bench/turns.h"
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

void Cut(benchmark::State& state, size_t size) {
  const std::vector<std::string> chunks = Chunks(size), small = Chunks(kSmall);
  std::istringstream held(Text());
  size_t lines = 0;
  const auto counted = [&lines](auto job) { return [&lines, job] { lines += job(); }; };
  std::vector<Turns::Job> jobs = {{"own", counted([&] { return Parse(chunks); })},
                                  {"getline all at once", counted(GetlineOfCopy)},
                                  {"getline 4KiB", counted([&] { return GetlineFed(small); })},
                                  {"getline held", counted([&] { return GetlineOfHeld(held); })}};
  if (size != kSmall) jobs.push_back({"4KiB", counted([&] { return Parse(small); })});
  Turns(jobs).Measure(state);
  const auto bytes = static_cast<size_t>(state.iterations()) * Text().size();
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
  if (lines * kLine != bytes * jobs.size()) state.SkipWithError("lines were lost");
}

BENCHMARK_CAPTURE(Cut, 4KiB, kSmall)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Cut, 1MiB, kLarge)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
