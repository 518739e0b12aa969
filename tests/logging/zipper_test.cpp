#include "logging/zipper.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <sstream>
#include <thread>
#include <vector>

#include "runtime/filesystem.h"
#include "runtime/runprogram.h"
#include "tests/support/captured_output.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/temp_directory.h"

static std::string synced;  // names that were synced, each with "+" if the file x.txt beside it was there still
static bool sync_fails;
static bool takes_signals;

// The real disk's answer can't be seen.
extern "C" int __wrap_fsync(int fd) {
  const std::string path = ReadSymLink("/proc/self/fd/" + std::to_string(fd));
  const std::string directory = IsDirectory(path) ? path : path.substr(0, path.rfind('/'));
  synced += ExtractFilename(path) + (IsRegularFile(directory + "/x.txt") ? "+ " : " ");
  sigset_t blocked;
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  for (const int signal : {SIGINT, SIGTERM, SIGCHLD, SIGALRM}) takes_signals |= sigismember(&blocked, signal) == 0;
  errno = EIO;
  return sync_fails ? -1 : 0;
}

namespace {

using Names = std::set<std::string>;

// Without what zip tells itself.
std::string OutputOf(const std::vector<std::string>& paths) {
  const CapturedOutput output;
  Zipper zipper;
  for (const auto& path : paths) zipper.Zip(path);
  zipper.Quit();
  std::istringstream lines(output.Text());
  std::string own;
  for (std::string line; std::getline(lines, line);)
    if (!line.empty() && !line.starts_with("zip ")) own += line + '\n';
  return own;
}

std::string Unzipped(const std::string& archive, const std::string& name) {
  std::string content;
  return RunProgramCaptureStdout("/usr/bin/unzip -p " + archive + ' ' + name, content) == 0 ? content : "not whole";
}

TEST(Zipper, PacksBesideTheFileWhatItCanAndPassesOverTheRest) {
  const TempDirectory place;
  for (const char* name : {"x.txt", "x.csv", "d.d/file", "d.e/x.txt", "none"}) place.Write(name, name);
  place.Write("old.txt", "first");
  EXPECT_EQ("", OutputOf({place / "old.txt", place / "x.txt", place / "x.csv", place / "d.d/file", place / "d.e",
                          place / "gone.txt"}));
  place.Write("old.txt", "second");
  EXPECT_EQ("", OutputOf({place / "old.txt"}));
  EXPECT_EQ((Names{"d.d", "d.e", "d.zip", "none", "old.zip", "x.zip"}), place.Names());
  EXPECT_EQ("x.txt", Unzipped(place / "x.zip", "x.txt"));
  EXPECT_EQ("x.csv", Unzipped(place / "x.zip", "x.csv"));
  EXPECT_EQ("file", Unzipped(place / "d.zip", "file").substr(4));
  EXPECT_EQ("second", Unzipped(place / "old.zip", "old.txt"));
  const std::string here = CurrentWorkingDirectory();
  ASSERT_EQ(0, chdir((place / "d.e").c_str()));
  place.Write("d.e/none", "");
  EXPECT_EQ("", OutputOf({"x.txt", "none"}));
  EXPECT_EQ(0, chdir(here.c_str()));
  EXPECT_EQ("d.e/x.txt", Unzipped(place / "d.e/x.zip", "x.txt"));
  EXPECT_EQ(0, access((place / "d.e/none").c_str(), F_OK));
}

// A name with a blank reaches zip as two: here it packs the first of them, and says that it was well.
TEST(Zipper, WhatGoesWrongLeavesTheFile) {
  const TempDirectory place;
  for (const char* name : {"bad.txt", "bad.zip", "x", "x y.txt", "last.txt"}) place.Write(name, "content");
  const std::string path = place / "x y.txt";
  EXPECT_EQ("Unable to zip " + (place / "bad.txt") + ": Unknown error 768\nERROR: Unable to zip " + path +
                ": StreamFile: Unable to open " + (place / "x y.zip") + ": No such file or directory\n",
            OutputOf({place / "bad.txt", path, place / "last.txt"}));
  EXPECT_EQ((Names{"bad.txt", "bad.zip", "last.zip", "x", "x y.txt", "x.zip"}), place.Names());
}

TEST(Zipper, AFullDiskLeavesTheFileAndTheArchiveThatWasThere) {
  if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount";
  const TempDirectory place;
  const auto result = RunInMountNamespace([&place] {
    MountEmpty(place.Path(), "size=64k");
    place.Write("x.txt", "old");
    EXPECT_EQ("", OutputOf({place / "x.txt"}));
    std::string noise;
    for (uint32_t state = 1; noise.size() < 40'000; state = state * 1'664'525 + 1'013'904'223)
      noise += char(state >> 24);
    place.Write("x.txt", noise);
    EXPECT_EQ("Unable to zip " + (place / "x.txt") + ": Unknown error 3584\n", OutputOf({place / "x.txt"}));
    EXPECT_EQ(noise, place.Read("x.txt"));
    EXPECT_EQ("old", Unzipped(place / "x.zip", "x.txt"));
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
}

TEST(Zipper, TheSourceGoesWhenArchiveAndNameAreOnTheDisk) {
  const TempDirectory place;
  place.Write("x.txt", "content");
  const std::string directory = ExtractFilename(place.Path()), error = "ERROR: Unable to zip " + (place / "x.txt");
  for (const bool fails : {true, false}) {
    sync_fails = fails, synced.clear();
    EXPECT_EQ(fails ? error + ": Unable to sync: " + (place / "x.zip") + ": Input/output error\n" : "",
              OutputOf({place / "x.txt"}));
    EXPECT_EQ(fails ? "x.zip+ " : "x.zip+ " + directory + "+ ", synced);
    EXPECT_FALSE(takes_signals);
    EXPECT_EQ(fails ? 2U : 1U, place.Names().size());
  }
}

TEST(Zipper, QuitPacksWhatIsQueuedAndIsFinal) {
  const TempDirectory place;
  const CapturedOutput output;
  {
    Zipper zipper, unquit;
    for (const char digit : std::string("0123456789")) {
      place.Write(std::string(1, digit) + ".txt", "");
      (digit < '5' ? zipper : unquit).Zip(place / (std::string(1, digit) + ".txt"));
    }
    zipper.Quit();
    EXPECT_THROW(zipper.Zip(place / "0.txt"), boost::sync_queue_is_closed);
  }
  EXPECT_EQ("ERROR: Unable to stop thread: Invalid argument\n", output.Text());
  for (const std::string& name : place.Names()) EXPECT_TRUE(name.ends_with(".zip")) << name;
}

// Packs x.txt in a process of its own, which leads a group with its zip.
pid_t StartPacking(const TempDirectory& place) {
  const pid_t child = fork();
  if (child != 0) return child;
  setpgid(0, 0);
  Zipper zipper;
  zipper.Zip(place / "x.txt");
  zipper.Quit();
  _exit(0);
}

// With its zip, and without, which then goes on alone.
TEST(Zipper, AKillAtAnyMomentLosesNothing) {
  using Clock = std::chrono::steady_clock;
  constexpr int kMoments = 100;
  const std::string content(300'000, 'x');
  Clock::duration whole{};
  int left = 0;
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  for (int moment = -1; moment < kMoments; ++moment) {
    const TempDirectory place;
    place.Write("x.txt", content);
    const auto start = Clock::now();
    const pid_t child = StartPacking(place);
    setpgid(child, child);
    if (moment < 0) {
      waitpid(child, nullptr, 0);
      whole = Clock::now() - start;
      continue;
    }
    std::this_thread::sleep_until(start + whole * moment / kMoments);
    kill(moment % 2 == 0 ? -child : child, SIGKILL);
    while (wait(nullptr) > 0) continue;
    const bool there = place.Read("x.txt") == content;
    EXPECT_TRUE(there || Unzipped(place / "x.zip", "x.txt") == content) << moment;
    left += there ? 1 : 0;
  }
  prctl(PR_SET_CHILD_SUBREAPER, 0);
  EXPECT_GT(left, 0);
}

}  // namespace
