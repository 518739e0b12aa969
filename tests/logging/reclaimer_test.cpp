#include "logging/reclaimer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <limits>
#include <thread>
#include <vector>

#include "runtime/errnoexcept.h"
#include "tests/support/captured_output.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/temp_directory.h"

namespace {

using testing::EndsWith;
using Names = std::set<std::string>;

struct File {
  const char* name;
  time_t time;  // Unix time
  off_t size;   // bytes; they take no room
};

// A directory with these files on a disk of 1 MiB: 10,485 bytes for each percent to reclaim. Runs `body` there.
void WithDisk(const char* row, const std::vector<File>& files, const std::function<void(const TempDirectory&)>& body) {
  const TempDirectory place;
  const auto result = RunInMountNamespace([&] {
    MountEmpty(place.Path(), "size=1m");
    for (const File& file : files) {
      place.Write(file.name, "");
      const timespec times[] = {{file.time, 0}, {file.time, 0}};
      ASSERT_EQ(0, truncate((place / file.name).c_str(), file.size));
      ASSERT_EQ(0, utimensat(AT_FDCWD, (place / file.name).c_str(), times, 0));
    }
    body(place);
  });
  EXPECT_EQ(0, result.exit_status) << row << ": " << result.output;
}

// What the requests print.
std::string Serve(bool verbose, const std::vector<Reclaimer::q_item>& requests) {
  const CapturedOutput output;
  Reclaimer reclaimer(verbose);
  for (const auto& request : requests) reclaimer.Reclaim(request.path, request.percent, request.except);
  reclaimer.Quit();
  return output.Text();
}

TEST(Reclaimer, DeletesTheOldestUntilEnoughIsGone) {
  if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount";
  constexpr off_t kHuge = std::numeric_limits<off_t>::max();
  const struct {
    const char* row;
    std::vector<File> files;
    int percent;
    std::string except;
    Names left;
  } rows[] = {
      {"10.9 percent are 10", {{"a", 1, 115'343}}, 10, "", {"a"}},
      {"11 percent are not", {{"a", 1, 115'344}}, 10, "", {}},
      {"by age", {{"a", 5, 60'000}, {"b", 1, 60'000}, {"c", -4, 60'000}, {"d", 3, 30'000}}, 10, "", {"a", "d"}},
      {"the remaining size is enough", {{"a", 1, 10'485}, {"b", 2, 110'000}}, 10, "", {"b"}},
      {"less is not", {{"a", 1, 10'484}, {"b", 2, 110'000}, {"c", 3, 9}}, 10, "", {"c"}},
      {"spared", {{"a.part", 1, 90'000}, {"b", 2, 9'000}, {"c", 3, 16'400}}, 10, ".part", {"a.part"}},
      {"not by its middle", {{"x.part.txt", 1, 120'000}, {"y.part", 0, 1}}, 10, ".part", {"y.part"}},
      {"in 64 bits", {{"a", 1, off_t{5} << 30}, {"b", 2, 20}}, 100, "", {"b"}},
      {"absurd sizes", {{"a", 1, kHuge}, {"b", 2, kHuge}, {"c", 3, kHuge}}, 0, "", {"a", "b", "c"}},
      {"no bytes to reclaim", {{"a", 1, 0}, {"b", 2, 0}}, std::numeric_limits<int>::min(), "", {}},
  };
  for (const auto& row : rows)
    WithDisk(row.row, row.files, [&row](const TempDirectory& place) {
      EXPECT_EQ("", Serve(false, {{place.Path(), row.except, row.percent}}));
      EXPECT_EQ(row.left, place.Names());
    });
}

TEST(Reclaimer, TellsWhatItDoesWhenVerbose) {
  if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount";
  WithDisk("", {{"b", 20, 60'000}, {"a", 1'714'566'600, 90'000}, {"c.part", 3, 69'000}}, [](const auto& place) {
    const std::string path = place.Path();
    const timespec times[] = {{2, 0}, {2, 0}};
    ASSERT_EQ(0, symlink(std::string(1'000, 'x').c_str(), (place / "link").c_str()));
    ASSERT_EQ(0, utimensat(AT_FDCWD, (place / "link").c_str(), times, AT_SYMLINK_NOFOLLOW));
    const std::string sums = "2 " + path + "/link 1000\n3 " + path + "/c.part 69000\n20 " + path +
                             "/b 60000\n1714566600 " + path +
                             "/a 90000\ntotal_size=220000\n disk_size=1048576\n   percent=20\n";
    EXPECT_EQ(sums, Serve(true, {{path, "", 20}}));
    EXPECT_EQ(sums + "reclaim_percent=5\n  reclaim_bytes=52425\nDELETE " + path + "/link\nDELETE " + path + "/b\n",
              Serve(true, {{path, ".part", 15}}));
    // A path one byte shorter than the ending counts as ending in it.
    EXPECT_THAT(Serve(true, {{path, path + "/c.part_", 14}}), EndsWith("=10485\nDELETE " + path + "/a\n"));
    EXPECT_THAT(Serve(true, {{path, path + "/c.part__", 1}}), EndsWith("DELETE " + path + "/c.part\n"));
  });
}

TEST(Reclaimer, AnErrorEndsOnlyItsRequest) {
  if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount";
  WithDisk("", {{"a", 1, 200'000}, {"d/b", 1, 200'000}}, [](const TempDirectory& place) {
    ASSERT_EQ(0, mount("none", place.Path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
    const std::string error = "ERROR: Unable to reclaim files from ", undeleted = ": Unable to delete ",
                      a = place / "a", d = place / "d";
    EXPECT_EQ(error + "/proc/self/fdinfo: The partition has no size\n" + error + place.Path() + undeleted + a +
                  ": Read-only file system\n" + error + d + undeleted + d + "/b: Read-only file system\n",
              Serve(false, {{a, "", 1}, {"/proc/self/fdinfo", "", 1}, {place.Path(), "", 1}, {d, "", 1}}));
  });
}

TEST(Reclaimer, QuitServesWhatAllThreadsHaveQueued) {
  const TempDirectory place;
  for (int i = 0; i < 100; ++i) place.Write(std::to_string(i) + "/name", "");
  const CapturedOutput output;
  {
    Reclaimer reclaimer(false);
    const auto ask = [&](int from) {
      for (int i = from; i < from + 50; ++i) reclaimer.Reclaim(place / std::to_string(i), -1);
    };
    std::thread other(ask, 50);
    ask(0);
    other.join();
    reclaimer.Quit();
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(std::filesystem::is_empty(place / std::to_string(i)));
    EXPECT_THROW(reclaimer.Reclaim(place.Path(), 1), boost::sync_queue_is_closed);
    EXPECT_EQ("", output.Text());
  }
  EXPECT_EQ("ERROR: Unable to stop thread: Invalid argument\n", output.Text());
}

}  // namespace
