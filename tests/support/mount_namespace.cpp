#include "tests/support/mount_namespace.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include "runtime/errnoexcept.h"

namespace {

bool Enter() {
  return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace

bool MountNamespaceAvailable() {
  static const bool available = RunInChild([] { _exit(Enter() ? 0 : 1); }).exit_status == 0;
  return available;
}

ChildResult RunInMountNamespace(const std::function<void()>& body) {
  return RunInChild([&body] {
    if (!Enter()) throw ErrnoError("mount namespace");
    body();
  });
}

void ExpectInMountNamespace(const std::function<void()>& body) {
  if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount, and / to be a mount point";
  const ChildResult result = RunInMountNamespace(body);
  EXPECT_EQ(result.exit_status, 0) << result.output;
}

void MountEmpty(const std::string& target, const std::string& options) {
  if (mount("tmpfs", target.c_str(), "tmpfs", 0, options.c_str()) != 0) throw ErrnoError(target);
}
