// Entry point of every test program: runs the tests, then fails the program when a descriptor that was not open
// at its start is open at its end.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <string>

namespace {

// What each open descriptor of this process points to. The walk's own descriptor is left out: it is closed again
// before its target can be read.
std::set<std::string> OpenDescriptors() {
  std::set<std::string> open;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const auto target = std::filesystem::read_symlink(entry.path(), gone);
    if (!gone && target.string().rfind("/proc/", 0) != 0) open.insert(entry.path().filename().string());
  }
  return open;
}

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  const auto before = OpenDescriptors();
  const int result = RUN_ALL_TESTS();
  int leaked = 0;
  for (const auto& descriptor : OpenDescriptors())
    if (before.count(descriptor) == 0) {
      std::fprintf(stderr, "descriptor %s was left open by a test\n", descriptor.c_str());
      ++leaked;
    }
  return result != 0 ? result : (leaked != 0 ? 1 : 0);
}
