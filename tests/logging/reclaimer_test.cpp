#include "logging/reclaimer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <map>
#include <vector>

#include "tests/support/captured_output.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/temp_directory.h"

namespace {

using testing::EndsWith;
using Names = std::set<std::string>;

using Files = std::map<std::string, std::pair<time_t, off_t>>;  // Unix time, and bytes that take no room

// A directory with these files on a disk of 1 MiB: 10,485 bytes for each percent to reclaim. Runs `body` there.
void WithDisk(const Files& files, const std::function<void(const TempDirectory&)>& body) {
  if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount";
  const TempDirectory place;
  const auto result = RunInMountNamespace([&] {
    MountEmpty(place.Path(), "size=1m");
    for (const auto& [name, file] : files) {
      place.Write(name, "");
      const timespec times[] = {{file.first, 0}, {file.first, 0}};
      ASSERT_EQ(0, truncate((place / name).c_str(), file.second));
      ASSERT_EQ(0, utimensat(AT_FDCWD, (place / name).c_str(), times, 0));
    }
    body(place);
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
}

std::string OutputOf(bool verbose, const std::vector<Reclaimer::q_item>& requests) {
  const CapturedOutput output;
  Reclaimer reclaimer(verbose);
  for (const auto& request : requests) reclaimer.Reclaim(request.path, request.percent, request.except);
  reclaimer.Quit();
  return output.Text();
}

TEST(Reclaimer, DeletesTheOldestUntilEnoughIsGone) {
  const auto check = [](const char* row, const Files& files, int percent, const std::string& except,
                        const Names& left) {
    WithDisk(files, [&](const TempDirectory& place) {
      EXPECT_EQ("", OutputOf(false, {{place.Path(), except, percent}})) << row;
      EXPECT_EQ(left, place.Names()) << row;
    });
  };
  check("10.9 percent are 10", {{"a", {1, 115'343}}, {"d/b", {0, 999'999}}}, 10, "", {"a", "d"});
  check("by age", {{"a", {5, 60'000}}, {"b", {1, 60'000}}, {"c", {-4, 60'000}}, {"d", {3, 9}}}, 10, "", {"a", "d"});
  check("the remaining size is enough", {{"a", {1, 10'485}}, {"b", {2, 110'000}}}, 10, "", {"b"});
  check("spared", {{"a.part", {1, 90'000}}, {"b", {2, 9'000}}, {"c", {3, 16'400}}}, 10, ".part", {"a.part"});
  check("not by its middle", {{"x.part.txt", {1, 120'000}}, {"y.part", {0, 1}}}, 10, ".part", {"y.part"});
  check("in 64 bits", {{"a", {1, off_t{5} << 30}}, {"b", {2, 20}}}, 100, "", {"b"});
  check("absurd sizes", {{"a", {1, INT64_MAX}}, {"b", {2, INT64_MAX}}, {"c", {3, INT64_MAX}}}, 0, "", {"a", "b", "c"});
}

TEST(Reclaimer, TellsWhatItDoesWhenVerbose) {
  WithDisk({{"b", {20, 60'000}}, {"a", {1'714'566'600, 90'000}}, {"c.part", {3, 69'000}}}, [](const auto& place) {
    const std::string path = place.Path();
    const timespec times[] = {{2, 0}, {2, 0}};
    ASSERT_EQ(0, symlink(std::string(1'000, 'x').c_str(), (place / "link").c_str()));
    ASSERT_EQ(0, utimensat(AT_FDCWD, (place / "link").c_str(), times, AT_SYMLINK_NOFOLLOW));
    const std::string sums = "2 " + path + "/link 1000\n3 " + path + "/c.part 69000\n20 " + path +
                             "/b 60000\n1714566600 " + path +
                             "/a 90000\ntotal_size=220000\n disk_size=1048576\n   percent=20\n";
    EXPECT_EQ(sums, OutputOf(true, {{path, "", 20}}));
    EXPECT_EQ(sums + "reclaim_percent=5\n  reclaim_bytes=52425\nDELETE " + path + "/link\nDELETE " + path + "/b\n",
              OutputOf(true, {{path, ".part", 15}}));
    // A path one byte shorter than the ending counts as ending in it.
    EXPECT_THAT(OutputOf(true, {{path, path + "/c.part_", 14}}), EndsWith("=10485\nDELETE " + path + "/a\n"));
  });
}

TEST(Reclaimer, AnErrorEndsOnlyItsRequest) {
  WithDisk({{"a", {1, 200'000}}}, [](const TempDirectory& place) {
    ASSERT_EQ(0, mount("none", place.Path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
    const std::string path = place.Path(), error = "ERROR: Unable to reclaim files from ";
    EXPECT_EQ(error + path + ": Unable to delete " + path + "/a: Read-only file system\n" + error +
                  "/proc/self/fdinfo: The partition has no size\n",
              OutputOf(false, {{path + "/a", "", 1}, {path, "", 1}, {"/proc/self/fdinfo", "", 1}}));
  });
}

}  // namespace
