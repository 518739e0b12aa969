// The column filter over a data line of 25 columns, of which 10 stay, beside a bare loop that appends the kept values
// to a string and sums it.
//
//   own/bare  our time divided by the loop's
//   news      allocations a line

#include <cstdint>
#include <string>
#include <vector>

#include "bench/news.h"
#include "bench/turns.h"
#include "logging/includecols.h"

namespace {

constexpr int kColumns = 25;

std::string Bare(const std::vector<std::string>& values, const std::vector<uint32_t>& keep) {
  std::string line = "DATA";
  for (size_t i = 0; i < values.size(); ++i)
    if (keep[i] != 0) {
      line += '\t';
      line += values[i];
    }
  line += '\t';
  unsigned int sum = 0;
  for (const char c : line) sum += static_cast<unsigned char>(c);
  const std::string digits = std::to_string(sum % 256);
  line.append(3 - digits.size(), ' ').append(digits) += '\n';
  return line;
}

void BM_ApplyFilterToDATA(benchmark::State& state) {
  std::vector<std::string> columns, values;
  std::vector<uint32_t> keep;
  std::set<std::string> wanted;
  for (int i = 0; i < kColumns; ++i) {
    columns.push_back(i == 0 ? "SECONDS" : i == 1 ? "NANOSECONDS" : "C" + std::to_string(i));
    values.push_back(i == 0 ? "1714566600" : i == 1 ? "100000000" : std::to_string(i * 1.03125));
    keep.push_back(i < 2 || i % 3 == 0 ? 1 : 0);  // ten of them
    if (keep.back() != 0) wanted.insert(columns.back());
  }
  IncludeCols filter;
  filter.ApplyFilterToDATAH(columns);
  filter.ColsToInclude(wanted);
  if (filter.ApplyFilterToDATA(values) != Bare(values, keep)) state.SkipWithError("not the same line");

  Turns turns({{"own", Batch([&] { benchmark::DoNotOptimize(filter.ApplyFilterToDATA(values)); })},
               {"bare", Batch([&] { benchmark::DoNotOptimize(Bare(values, keep)); })}});
  turns.Measure(state);
  const int64_t before = news;
  benchmark::DoNotOptimize(filter.ApplyFilterToDATA(values));
  state.counters["news"] = static_cast<double>(news - before);
}
BENCHMARK(BM_ApplyFilterToDATA)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
