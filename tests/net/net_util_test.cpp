#include "net/net_util.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include "tests/support/child_process.h"

namespace {

TEST(Hostname, IsReadAndSet) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, for a host name of the test's own";
  const auto body = [] {
    ASSERT_EQ(0, unshare(CLONE_NEWUTS));
    EXPECT_TRUE(SetHostname("station-7"));
    EXPECT_EQ("station-7", Hostname());
    EXPECT_FALSE(SetHostname(std::string(200, 'x')));
    EXPECT_EQ("station-7", Hostname());
    EXPECT_TRUE(SetHostname(std::string(64, 'y')));
    EXPECT_EQ(std::string(64, 'y'), Hostname());
  };
  const auto result = RunInChild(body);
  EXPECT_EQ(0, result.exit_status) << result.output;
}

}  // namespace
