#include "serial/linuxclocksync.h"

#include <gtest/gtest.h>

#include "tests/support/captured_output.h"

namespace {

// The oracle has the law itself.
TEST(LinuxClockSync, TellsItsCorrectionsAndKnowsAStep) {
  CapturedOutput output;
  LinuxClockSync sync(true, 10, 5);
  for (int i = 0; i < 4; ++i) EXPECT_FALSE(sync.Sync({5, 0}, {5, 1000}, nullptr));
  const std::string line = " count=2 drift=-1000 adj=-300 p=-200 i=-100 adj=-300 freq=19500\n";
  EXPECT_EQ(line + " count=2 drift=-1000 adj=-400 p=-200 i=-200 adj=-400 freq=26000\n", output.Text());
  // Moments that aren't normal hide their seconds.
  for (const TimeVal& far : {TimeVal(-1, 2'000'000'000), TimeVal(1, -2'000'000'000), TimeVal(1, -INT32_MAX)}) {
    long frequency = 1;
    EXPECT_TRUE(sync.Sync(far, TimeVal(), &frequency));
    EXPECT_EQ(frequency, 0);
  }
}

}  // namespace
