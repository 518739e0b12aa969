#include "runtime/errnoexcept.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(ErrnoError, TakesTheNumberFromErrnoOrFromTheCaller) {
  errno = EBADF;
  EXPECT_EQ(std::string("Socket: accept error: ") + std::strerror(EBADF), ErrnoError("Socket: accept error").what());
  errno = EBADF;
  EXPECT_EQ(std::string("text: ") + std::strerror(ENOENT), ErrnoError("text", ENOENT).what());
}

}  // namespace
