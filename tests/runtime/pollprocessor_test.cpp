#include "runtime/pollprocessor.h"

#include <gtest/gtest.h>

#include "tests/support/poll_runner.h"
#include "tests/support/virtual_time.h"

namespace {

struct Periodic : PollTimer {
  explicit Periodic(int milliseconds) : PollTimer(milliseconds, true), period(milliseconds) {}
  void HandleTimeout() override {
    ++fired;
    AddTimeout(period);
  }
  int period, fired = 0;
};

TEST(PollTimer, APeriodDoesNotDriftOverADay) {
  const VirtualTime time;
  const Periodic timer(1'000);
  const int64_t armed = timer.Expiry();
  PollFor(86'400'000);
  EXPECT_EQ(timer.fired, 86'400);
  EXPECT_EQ(timer.Expiry() - armed, 86'400 * int64_t{1'000'000'000});
}

}  // namespace
