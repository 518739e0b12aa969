#include "logging/reclaimer.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <random>
#include <thread>
#include <vector>

#include "tests/support/captured_output.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/temp_directory.h"

namespace {

constexpr int64_t kDisk = 1 << 20;  // bytes

// Runs `body` in the directory of a disk of that size.
void WithDisk(const std::function<void(const TempDirectory&)>& body) {
  if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount, and / to be a mount point";
  const TempDirectory place;
  const auto result = RunInMountNamespace([&] {
    MountEmpty(place.Path(), "size=1m");
    body(place);
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
}

// A file of that age, in Unix time, whose bytes take no room; or a link without a target, as long as they say.
void Make(const std::string& path, time_t age, int64_t size, bool link = false) {
  const timespec times[] = {{age, 0}, {age, 0}};
  if (link) {
    ASSERT_EQ(0, symlink(std::string(size, 'x').c_str(), path.c_str()));
  } else {
    std::ofstream(path).flush();
    ASSERT_EQ(0, truncate(path.c_str(), size));
  }
  ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW));
}

// Of a Reclaimer from its beginning to its end, which Quit may precede.
std::string OutputOf(bool verbose, const std::vector<Reclaimer::q_item>& requests, bool quit = false) {
  const CapturedOutput output;
  {
    Reclaimer reclaimer(verbose);
    for (const auto& request : requests) reclaimer.Reclaim(request.path, request.percent, request.except);
    if (quit) {
      reclaimer.Quit();
      EXPECT_THROW(reclaimer.Reclaim("/", 1), boost::sync_queue_is_closed);
    }
  }
  return output.Text();
}

struct File {
  std::string name;
  time_t age;
  int64_t size;
};

// What is left of files in the directory's order. Sizes beyond all sense wrap around.
std::set<std::string> Left(std::vector<File> files, int32_t percent, const std::string& except) {
  std::set<std::string> left;
  uint64_t total = 0;
  for (const auto& file : files) {
    left.insert(file.name);
    total += file.size;
  }
  const auto taken = static_cast<int32_t>(static_cast<int64_t>(total * 100) / kDisk);
  int64_t bytes = kDisk / 100 * (int64_t{taken} - percent);
  std::stable_sort(files.begin(), files.end(), [](const File& a, const File& b) { return a.age < b.age; });
  for (const auto& file : files) {
    if (taken <= percent || (!except.empty() && file.name.ends_with(except))) continue;
    left.erase(file.name);
    if (file.size >= bytes) break;
    bytes -= file.size;
  }
  return left;
}

TEST(Reclaimer, ItsThreadGetsNoSignals) {
  Reclaimer reclaimer(false);
  {
    const CapturedOutput output;
    reclaimer.Reclaim("/proc", 0);
    while (output.Text().empty()) std::this_thread::yield();  // until it serves: a thread starts with all blocked
  }
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream status(task.path() / "status");
    std::string word;
    while (status >> word && word != "SigBlk:") continue;
    status >> word;
    const bool blocked = (std::stoull(word, nullptr, 16) >> (SIGTERM - 1) & 1) != 0;
    EXPECT_EQ(blocked, task.path().filename() != std::to_string(getpid())) << word;
  }
}

TEST(Reclaimer, LeavesWhatAPlainSecondFormLeaves) {
  WithDisk([](const TempDirectory& place) {
    std::mt19937 random(1);
    const auto any = [&](const std::vector<int64_t>& values) { return values[random() % values.size()]; };
    for (int round = 0; round < 300; ++round) {
      const int64_t unit = any({1'000, 10'485, 10'486, 30'000, int64_t{1} << 33, int64_t{1} << 61});
      for (auto count = random() % 8; count > 0; --count) {
        const std::string name = std::to_string(random() % 1'000) + (random() % 3 == 0 ? ".part" : "");
        const bool link = random() % 6 == 0;
        if (!place.Names().contains(name))
          Make(place / name, any({-4, 1, 1, 2, 30}), link ? 1'000 : any({0, 1, 1, 2}) * unit, link);
      }
      place.Write("directory/file", std::string(100, 'x'));
      std::vector<File> files;
      for (const auto& entry : std::filesystem::directory_iterator(place.Path())) {
        struct stat info {};
        lstat(entry.path().c_str(), &info);
        if (!S_ISDIR(info.st_mode)) files.push_back({entry.path().filename(), info.st_mtime, info.st_size});
      }
      const auto percent = static_cast<int32_t>(any({0, 1, 2, 5, 10, 1'000}));
      const std::string except = any({0, 1}) == 0 ? "" : ".part";
      std::set<std::string> left = Left(files, percent, except);
      left.insert("directory");
      EXPECT_EQ("", OutputOf(false, {{place.Path(), except, percent}}));
      ASSERT_EQ(left, place.Names()) << "round " << round << ", percent " << percent;
    }
  });
}

TEST(Reclaimer, TellsWhatItDoesWhenVerbose) {
  WithDisk([](const auto& place) {
    const std::string path = place.Path();
    Make(path + "/b", 20, 60'000);
    Make(path + "/a", 1'714'566'600, 90'000);
    Make(path + "/c.part", 3, 69'000);
    Make(path + "/link", 2, 1'000, true);
    const std::string sums = "2 " + path + "/link 1000\n3 " + path + "/c.part 69000\n20 " + path +
                             "/b 60000\n1714566600 " + path +
                             "/a 90000\ntotal_size=220000\n disk_size=1048576\n   percent=20\n";
    EXPECT_EQ(sums, OutputOf(true, {{path, "", 20}}));
    EXPECT_EQ(sums + "reclaim_percent=5\n  reclaim_bytes=52425\nDELETE " + path + "/link\nDELETE " + path + "/b\n",
              OutputOf(true, {{path, ".part", 15}}));
    // A path one byte shorter than the ending counts as ending in it.
    EXPECT_TRUE(OutputOf(true, {{path, path + "/c.part_", 14}}).ends_with("=10485\nDELETE " + path + "/a\n"));
  });
}

TEST(Reclaimer, AnErrorEndsOnlyItsRequestAndQuitIsForGood) {
  WithDisk([](const TempDirectory& place) {
    Make(place / "a", 1, 200'000);
    ASSERT_EQ(0, mount("none", place.Path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
    const std::string path = place.Path(), error = "ERROR: Unable to reclaim files from ";
    EXPECT_EQ(error + path + ": Unable to delete " + path + "/a: Read-only file system\n" + error +
                  "/proc/self/fdinfo: The partition has no size\nERROR: Unable to stop thread: Invalid argument\n",
              OutputOf(false, {{path + "/a", "", 1}, {path, "", 1}, {"/proc/self/fdinfo", "", 1}}, true));
  });
}

}  // namespace
