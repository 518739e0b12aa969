#include "runtime/superuser.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/child_process.h"
#include "tests/support/error_text.h"

namespace {

TEST(SuperUser, LastsForAScopeAndNeedsASavedIdentity) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  ExpectInChild([] {
    EXPECT_EQ(0, seteuid(54'321));
    for (int twice = 0; twice < 2; ++twice) {
      const SuperUser rights, nested;
      EXPECT_EQ(0u, geteuid());
    }
    EXPECT_EQ(54'321u, geteuid());
    EXPECT_EQ(0, setresuid(54'321, 54'321, 54'321));
    EXPECT_EQ("Unable to gain super user priviledges: Operation not permitted", ErrorText([] { SuperUser(); }));
  });
}

}  // namespace
