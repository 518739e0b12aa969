#include "logging/zipper.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <sstream>
#include <thread>

#include "emulators/temp_directory.h"
#include "runtime/filesystem.h"
#include "runtime/runprogram.h"
#include "tests/support/captured_output.h"
#include "tests/support/mount_namespace.h"

static std::string synced;  // each with a "+" while the source was there, and a "!" if the thread took signals
static bool sync_fails;

// What has reached a disk can't be seen.
extern "C" int __wrap_fsync(int fd) {
  const std::string path = ReadSymLink("/proc/self/fd/" + std::to_string(fd));
  sigset_t blocked;
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  const bool takes_signals = sigismember(&blocked, SIGTERM) == 0 || sigismember(&blocked, SIGALRM) == 0;
  const bool source = IsRegularFile(path.substr(0, path.rfind('.')) + ".txt");
  synced += ExtractFilename(path) + (source ? "+ " : " ") + (takes_signals ? "! " : "");
  errno = EIO;
  return sync_fails ? -1 : 0;
}

namespace {

using Names = std::set<std::string>;

// Without what zip tells itself.
std::string OutputOf(const std::vector<std::string>& paths) {
  const CapturedOutput output;
  if (Zipper zipper; true)
    for (const auto& path : paths) zipper.Zip(path);
  std::istringstream told(output.Text());
  std::string kept;
  for (std::string line; std::getline(told, line);)
    if (!line.empty() && !line.starts_with("zip ")) kept += line + '\n';
  return kept;
}

std::string Unzipped(const std::string& archive, const std::string& name) {
  std::string content;
  return RunProgramCaptureStdout("/usr/bin/unzip -p " + archive + ' ' + name, content) == 0 ? content : "not whole";
}

TEST(Zipper, PacksBesideTheFileAndPassesOverTheRest) {
  const TempDirectory place;
  for (const char* name : {"x.txt", "x.csv", "d.d/file", "d.e/none"}) place.Write(name, name);
  EXPECT_EQ("", OutputOf({place / "x.txt", place / "x.csv", place / "d.d/file", place / "d.e", place / "gone.txt"}));
  place.Write("x.txt", "again");
  place.Write("y.txt", "here");
  ASSERT_EQ(0, chdir(place.Path().c_str()));
  EXPECT_EQ("", OutputOf({place / "x.txt", "y.txt", "d.e/none", "none"}));
  ASSERT_EQ(0, chdir("/"));
  EXPECT_EQ((Names{"d.d", "d.e", "d.zip", "x.zip", "y.zip"}), place.Names());
  EXPECT_EQ("again", Unzipped(place / "x.zip", "x.txt"));
  EXPECT_EQ("x.csv", Unzipped(place / "x.zip", "x.csv"));
  EXPECT_EQ("d.d/file", Unzipped(place / "d.zip", "file"));
  EXPECT_EQ("here", Unzipped(place / "y.zip", "y.txt"));
}

// A name with a blank reaches zip as two: here it packs the first of them, and says that it was well.
TEST(Zipper, WhatGoesWrongLeavesTheFile) {
  const TempDirectory place;
  ExpectInMountNamespace([&place] {
    MountEmpty(place.Path(), "size=64k");
    for (const char* name : {"bad.txt", "bad.zip", "x", "x y.txt"}) place.Write(name, name);
    std::string noise;
    for (uint32_t state = 1; noise.size() < 40'000; state = state * 1'664'525 + 1)
      noise += static_cast<char>(state >> 24);
    place.Write("full.txt", noise);
    const std::string unable = "Unable to zip ", missing = ": No such file or directory\n";
    EXPECT_EQ("ERROR: " + unable + (place / "x y.txt") + ": StreamFile: Unable to open " + (place / "x y.zip") +
                  missing + unable + (place / "bad.txt") + ": Unknown error 768\n" + unable + (place / "full.txt") +
                  ": Unknown error 3584\n",
              OutputOf({place / "x y.txt", place / "bad.txt", place / "full.txt"}));
    EXPECT_EQ((Names{"bad.txt", "bad.zip", "full.txt", "x", "x y.txt", "x.zip"}), place.Names());
  });
}

TEST(Zipper, TheSourceGoesWhenArchiveAndNameAreOnTheDisk) {
  const TempDirectory place;
  place.Write("x.txt", "content");
  for (const bool fails : {true, false}) {
    sync_fails = fails, synced.clear();
    const std::string error = "ERROR: Unable to zip " + (place / "x.txt") + ": Unable to sync: " + (place / "x.zip");
    EXPECT_EQ(fails ? error + ": Input/output error\n" : "", OutputOf({place / "x.txt"}));
    EXPECT_EQ(fails ? "x.zip+ " : "x.zip+ " + ExtractFilename(place.Path()) + ' ', synced);
    EXPECT_EQ(fails, place.Read("x.txt") == "content");
  }
}

TEST(Zipper, QuitPacksWhatIsQueuedAndIsFinal) {
  const TempDirectory place;
  const CapturedOutput output;
  {
    Zipper zipper;
    for (const char* name : {"0.txt", "1.txt", "2.txt"}) {
      place.Write(name, "");
      zipper.Zip(place / name);
    }
    zipper.Quit();
    EXPECT_EQ((Names{"0.zip", "1.zip", "2.zip"}), place.Names());
    EXPECT_THROW(zipper.Zip(place / "0.txt"), boost::sync_queue_is_closed);
  }
  EXPECT_EQ("ERROR: Unable to stop thread: Invalid argument\n", output.Text());
}

// With its zip, and without, which then goes on alone. The first one is left alone, for its time.
TEST(Zipper, AKillAtAnyMomentLosesNothing) {
  using Clock = std::chrono::steady_clock;
  constexpr int kMoments = 100;
  const std::string content(300'000, 'x');
  Clock::duration whole{};
  int left = 0;
  if (!AdoptOrphans()) GTEST_SKIP() << "the zip programs couldn't be waited for";
  for (int moment = 0; moment <= kMoments; ++moment) {
    const TempDirectory place;
    place.Write("x.txt", content);
    const auto start = Clock::now();
    const pid_t child = fork();
    setpgid(child, child);  // the group of its zip, too
    if (child == 0) {
      Zipper zipper;
      zipper.Zip(place / "x.txt");
      zipper.Quit();
      _exit(0);
    }
    std::this_thread::sleep_until(start + whole * moment / kMoments);
    if (moment > 0) kill(moment % 2 == 0 ? -child : child, SIGKILL);
    while (wait(nullptr) > 0) continue;
    if (moment == 0) whole = Clock::now() - start;
    const bool there = place.Read("x.txt") == content;
    EXPECT_TRUE(there || Unzipped(place / "x.zip", "x.txt") == content) << moment;
    left += there ? 1 : 0;
  }
  prctl(PR_SET_CHILD_SUBREAPER, 0);
  EXPECT_GT(left, 0);
}

}  // namespace
