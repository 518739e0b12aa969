#include "logging/logger.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "emulators/temp_directory.h"
#include "runtime/filesystem.h"
#include "runtime/runprogram.h"
#include "tests/support/child_process.h"
#include "tests/support/mount_namespace.h"

// What files hold and what is told is held against a second form in fuzz/logger_fuzz.cpp.

namespace {

struct LoggerTest : testing::Test {
  LoggerTest() {
    logger.SetMountPath(disk.Path());
    logger.SetHostname("head");
    logger.SetDateTime("2024", "12");
  }
  ~LoggerTest() noexcept override {}  // what it holds could throw
  const TempDirectory disk;
  Logger logger{"device", "UTC", true};
};

TEST_F(LoggerTest, PacksByTheRealZip) {
  if (!AdoptOrphans()) GTEST_SKIP() << "zip couldn't be waited for";
  logger.WriteDATA("1\n", 0);
  logger.SetSN("2");
  int status = -1;
  EXPECT_TRUE(wait(&status) > 0 && status == 0);
  EXPECT_EQ(std::set<std::string>{"head-2024T12.zip"}, disk.Names());
  std::string text;
  RunProgramCaptureStdout("/usr/bin/unzip -p " + (disk / "head-2024T12.zip"), text);
  EXPECT_TRUE(text.ends_with("\nTimestamp:\t2024 12\nTimezone:\tUTC\n1\n")) << text;
}

TEST_F(LoggerTest, AFullDiskShowsUntilTheFileEnds) {
  ExpectInMountNamespace([&] {
    MountEmpty(disk.Path(), "size=64k");
    disk.Write("ballast", std::string(20'000, 'x'));
    const std::string line(1'000, '.');
    for (int i = 0; logger.USBState() != 3 && i < 100; ++i) logger.WriteDATA(line, 0);
    DeleteFile(disk / "ballast");
    for (int i = 0; i < 100; ++i) logger.WriteDATA("lost", 0);
    EXPECT_EQ(3, logger.USBState());
    logger.StopLogging();
    const std::string kept = disk.Read("head-2024T12.txt");
    EXPECT_EQ(kept.size(), 65'536 - 20'480);  // whole pages
    EXPECT_TRUE(kept.ends_with(line.substr(0, 500)));
    logger.StartLogging();
    logger.WriteDATA("1", 0);
    EXPECT_EQ(1, logger.USBState());
  });
}

}  // namespace
