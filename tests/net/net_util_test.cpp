#include "net/net_util.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include "tests/support/child_process.h"

namespace {

TEST(Hostname, IsReadAndSet) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, for a host name of the test's own";
  const auto result = RunInChild([] {
    ASSERT_EQ(0, unshare(CLONE_NEWUTS));
    for (const size_t length : {9, 64, 200}) EXPECT_EQ(length <= 64, SetHostname(std::string(length, 'x')));
    EXPECT_EQ(std::string(64, 'x'), Hostname());
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
}

}  // namespace
