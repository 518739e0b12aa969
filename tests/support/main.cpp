// Entry point of every test program: runs the tests, then fails the program when a descriptor that was not open
// at its start is open at its end.

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <set>

// libdbus takes the locks of its connections in either order, on one thread.
extern "C" const char* __tsan_default_suppressions();
const char* __tsan_default_suppressions() {
  return "deadlock:libdbus-1.so\n";
}

namespace {

std::set<int> OpenDescriptors() {
  std::set<int> open;
  for (int fd = 0; fd < 1024; ++fd)
    if (fcntl(fd, F_GETFD) >= 0) open.insert(fd);
  return open;
}

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  const auto before = OpenDescriptors();
  int result = RUN_ALL_TESTS();
  for (const int fd : OpenDescriptors())
    if (before.count(fd) == 0) {
      std::fprintf(stderr, "descriptor %d was left open by a test\n", fd);
      result = 1;
    }
  return result;
}
