#include "logging/reclaimer.h"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <thread>

#include "emulators/temp_directory.h"
#include "tests/support/captured_output.h"
#include "tests/support/mount_namespace.h"

// What is left of a directory, and what is told of it, is held against a second form in fuzz/reclaimer_fuzz.cpp.

namespace {

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

TEST(Reclaimer, AnErrorEndsOnlyItsRequestAndQuitIsForGood) {
  if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount, and / to be a mount point";
  const TempDirectory place;
  const auto result = RunInMountNamespace([&place] {
    const std::string& path = place.Path();
    MountEmpty(path);
    place.Write("a", std::string(200'000, 'x'));
    ASSERT_EQ(0, mount("none", path.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
    Reclaimer reclaimer(false), abandoned(false);
    abandoned.Abandon();
    abandoned.Reclaim(path, 0);
    for (const std::string& each : {path + "/a", path, std::string("/proc/self/fdinfo")}) reclaimer.Reclaim(each, 0);
    reclaimer.Quit();
    EXPECT_THROW(reclaimer.Reclaim("/", 1), boost::sync_queue_is_closed);
  });
  const std::string path = place.Path(), error = "ERROR: Unable to reclaim files from ";
  EXPECT_EQ(error + path + ": Unable to delete " + path + "/a: Read-only file system\n" + error +
                "/proc/self/fdinfo: The partition has no size\nERROR: Unable to stop thread: Invalid argument\n",
            result.output);
  EXPECT_EQ(0, result.exit_status);
}

}  // namespace
