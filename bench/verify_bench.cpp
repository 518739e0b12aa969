// A data file through the verifier, beside a bare loop that finds the ends of its lines and adds up their bytes.
//
//   own/bare           our time divided by the loop's
//   bytes_per_second   of the file

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "bench/turns.h"
#include "runtime/datachecksum.h"
#include "station/verify.h"

namespace {

constexpr int kRecords = 100'000;  // ten a second

std::string File() {
  std::string text = "DATAH\tSECONDS\tNANOSECONDS\tNDX\tCH4\tCH4D\tTEMP\tPRESSURE\tMODE\tRSSI\tDIAG\tCHK\n";
  for (int i = 0; i < kRecords; ++i) {
    char line[200];
    const int size =
        std::snprintf(line, sizeof line, "DATA\t%d\t%d\t%d\t%.5g\t%.5g\t%.6g\t%.5g\t0\t%.4g\t0\t",
                      1'714'566'600 + i / 10, i % 10 * 100'000'000, i, 1.9 + i % 997 * 1e-4, 0.08 + i % 101 * 1e-5,
                      12.5 + i % 17 * 0.01, 98.5 + i % 7 * 0.1, 71.2 + i % 13 * 0.1);
    std::string record(line, static_cast<size_t>(size));
    AppendCheckSum(record);
    text += record;
  }
  return text;
}

unsigned Bare(std::string_view text) {
  unsigned wrong = 0;
  for (size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1)) {
    unsigned sum = 0;
    for (const char c : text.substr(0, end)) sum += static_cast<unsigned char>(c);
    wrong += sum == 0 ? 1 : 0;
  }
  return wrong;
}

void Verify(benchmark::State& state) {
  const std::string text = File();
  int64_t findings = 0;
  Turns turns({{"own",
                [&] {
                  Verifier verifier(60, [&findings](int64_t, const std::string&) { ++findings; });
                  for (size_t at = 0; at < text.size(); at += 1 << 20)
                    verifier.Feed(std::string_view(text).substr(at, 1 << 20));
                  verifier.End();
                  findings += kRecords - verifier.Records();
                }},
               {"bare", [&] { benchmark::DoNotOptimize(Bare(text)); }}});
  turns.Measure(state);
  if (findings != 0) state.SkipWithError("the file isn't found sound");
  state.counters["bytes_per_second"] = benchmark::Counter(static_cast<double>(text.size()) / turns.Median(0));
}
BENCHMARK(Verify)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
