#include "tests/support/mount_namespace.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "emulators/must.h"

bool MountNamespaceAvailable() {
  static const bool available = RunInChild([] { _exit(EnterOwnMounts() ? 0 : 1); }).exit_status == 0;
  return available;
}

ChildResult RunInMountNamespace(const std::function<void()>& body) {
  return RunInChild([&body] {
    Must(EnterOwnMounts(), "have mounts of its own");
    body();
  });
}

void ExpectInMountNamespace(const std::function<void()>& body) {
  if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount, and / to be a mount point";
  const ChildResult result = RunInMountNamespace(body);
  EXPECT_EQ(result.exit_status, 0) << result.output;
}
