#include "serial/linuxclocksync.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/captured_output.h"

namespace {

constexpr long kNone = 1;               // no correction: those are multiples of 65
constexpr int32_t kMost = 999'999'999;  // nanoseconds of a sample
constexpr int32_t kHuge = 2'147'483'647;
constexpr long kBound = 33'554'430;

TEST(LinuxClockSync, CorrectsByTheMinimumOfEachCycle) {
  const struct {
    int32_t integral, proportional;  // divisors
    std::vector<TimeVal> offsets;
    std::vector<long> results;
  } rows[] = {
      {1, 1, {{0, 100}, {0, 90}, {0, 80}, {0, 95}}, {kNone, 0, kNone, -10400}},  // the first positive one counts as 0
      {1000, 1, {{0, 9}, {0, -5}, {0, 7}, {0, 9}}, {kNone, 325, kNone, 325}},    // the newest opens the next cycle
      {3, 2, {{0, -5}, {0, 0}, {0, 5}, {0, 5}}, {kNone, 195, kNone, 65}},        // quotients are cut towards zero
      {1, 1, {{0, -kMost}, {0, 0}, {0, -kMost}, {0, 0}}, {kNone, kBound, kNone, kBound}},
      {1, 1, {{0, kMost}, {0, kMost}, {0, kMost}, {0, kMost}}, {kNone, 0, kNone, -kBound}},
      {2000, kHuge, {{0, -kMost}, {}, {0, -kMost}, {}}, {kNone, 32'499'935, kNone, 32'500'000}},  // the integral's
      {1, 1, {{0, -100}, {-1, 0}, {0, -10}, {0, 0}}, {kNone, 0, kNone, 1300}},  // one in the middle of a cycle
      {1, 1, {{0, kHuge}, {-7, -kHuge}, {0, -kHuge}}, {0, 0, 0}},               // not normal
  };
  for (const auto& row : rows) {
    LinuxClockSync sync(false, row.integral, row.proportional);
    for (size_t i = 0; i < row.offsets.size(); ++i) {
      long frequency = kNone;
      EXPECT_EQ(row.results[i] != kNone, sync.Sync(row.offsets[i], TimeVal(), &frequency));
      EXPECT_EQ(row.results[i], frequency) << "row " << &row - rows << ", sample " << i;
    }
  }
}

TEST(LinuxClockSync, ALostCorrectionStillMovesTheIntegral) {
  CapturedOutput output;
  LinuxClockSync sync(true, 10, 5);
  for (int i = 0; i < 4; ++i) EXPECT_FALSE(sync.Sync({5, 0}, {5, 1000}, nullptr));
  const std::string line = " count=2 drift=-1000 adj=-300 p=-200 i=-100 adj=-300 freq=19500\n";
  EXPECT_EQ(line + " count=2 drift=-1000 adj=-400 p=-200 i=-200 adj=-400 freq=26000\n", output.Text());
}

}  // namespace
