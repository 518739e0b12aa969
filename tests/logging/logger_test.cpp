#include "logging/logger.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <ctime>
#include <functional>
#include <limits>
#include <map>

#include "runtime/filesystem.h"
#include "runtime/runprogram.h"
#include "tests/support/captured_output.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/poll_runner.h"
#include "tests/support/temp_directory.h"
#include "tests/support/virtual_time.h"

namespace {

const std::string kHeader =
    "Model:\tGPS Logger\nFile Type:\t2\nInstrument:\thead\nSerial Number:\tTG20\nSoftware Version:\t1.0.2\n"
    "Timestamp:\t2024-05-01 12:30:00\nTimezone:\tUTC\nDATAH\tSECONDS\tCHK\n";
const std::string kName = "head-2024-05-01T123000";
using Names = std::set<std::string>;

// A logger that needs nothing but a line to open kName. The zip programs, nobody's children, come to the test, which
// can wait for them.
class LoggerTest : public testing::Test {
 protected:
  LoggerTest() {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    logger.SetSN("TG20");
    logger.SetVersion("1.0.2");
    logger.SetDATAH("DATAH\tSECONDS\tCHK\n");
    SetName();
  }

  ~LoggerTest() noexcept override { prctl(PR_SET_CHILD_SUBREAPER, 0); }

  void SetName() {
    logger.SetMountPath(disk.Path());
    logger.SetHostname("head");
    logger.SetDateTime("2024-05-01", "12:30:00");
  }

  // Waits for each zip and gives their count.
  static int Packed() {
    int count = 0;
    for (int status = 0; wait(&status) > 0; ++count) EXPECT_EQ(0, status);
    return count;
  }

  std::string Unpack(const std::string& name) const {
    std::string text;
    EXPECT_EQ(0, RunProgramCaptureStdout("/usr/bin/unzip -p " + disk / name, text));
    return text;
  }

  const TempDirectory disk;
  Logger logger{"device", "UTC", true};
};

TEST_F(LoggerTest, AFileFromItsFirstLineToItsName) {
  const CapturedOutput output;
  EXPECT_EQ(Names(), disk.Names());
  EXPECT_EQ(2, logger.USBState());
  logger.WriteDATA("1\n", 0);
  EXPECT_EQ(1, logger.USBState());
  EXPECT_EQ(1, logger.USBState());
  logger.SetDateTime("2024-05-02", "00:00:00");
  logger.SetDATAH("DATAH\tCHK\n");
  logger.WriteDATA("2", 0);
  EXPECT_EQ(Names{kName + ".txt.part"}, disk.Names());
  logger.StopLogging();
  logger.StopLogging();
  logger.WriteDATA("lost\n", 0);
  EXPECT_EQ(Names{kName + ".txt"}, disk.Names());
  EXPECT_EQ(kHeader + "1\nDATAH\tCHK\n2", disk.Read(kName + ".txt"));
  const std::string part = "logging to file: " + (disk / kName) + ".txt.part\n";
  EXPECT_EQ("Logger::USBState: not logging\nL" + part.substr(1) + "Logger::USBState: logging\nStopped " + part,
            output.Text());
}

TEST_F(LoggerTest, WhatAPowerCutHasLeftIsContinued) {
  disk.Write(kName + ".txt.part", "old\nunfini");
  disk.Write(kName + ".txt/in the way", "");
  logger.WriteDATA("1\n", 0);
  logger.StopLogging();  // the renaming fails
  EXPECT_EQ("old\nunfini" + kHeader + "1\n", disk.Read(kName + ".txt.part"));
}

TEST_F(LoggerTest, NoFileWithoutAllThatItNeeds) {
  const struct {
    const char* row;
    std::function<void()> spoil;
    int state;
  } rows[] = {
      {"no disk", [&] { logger.SetMountPath(""); }, 0},
      {"no such directory", [&] { logger.SetMountPath(disk / "missing"); }, 2},
      {"no host name", [&] { logger.SetHostname(""); }, 2},
      {"no date", [&] { logger.SetDateTime("", "12:30:00"); }, 2},
      {"no time", [&] { logger.SetDateTime("2024-05-01", ""); }, 2},
      {"stopped", [&] { logger.StopLogging(); }, 2},
  };
  for (const auto& row : rows) {
    row.spoil();
    logger.WriteDATA("lost\n", 0);
    EXPECT_EQ(row.state, logger.USBState()) << row.row;
    SetName();
  }
  EXPECT_EQ(Names(), disk.Names());
}

TEST_F(LoggerTest, AnotherHeaderTextEndsAndPacksTheFile) {
  const std::pair<void (Logger::*)(const std::string&), const char*> rows[] = {{&Logger::SetHostname, "head"},
                                                                               {&Logger::SetSN, "TG20"},
                                                                               {&Logger::SetVersion, "1.0.2"},
                                                                               {&Logger::SetTimezone, "UTC"}};
  for (const auto& [set, same] : rows) {
    logger.WriteDATA("1\n", 0);
    (logger.*set)(same);
    logger.WriteDATA("2\n", 0);
    (logger.*set)("other");
    EXPECT_EQ(1, Packed()) << same;
    EXPECT_EQ(Names{kName + ".zip"}, disk.Names()) << same;
    EXPECT_EQ(kHeader + "1\n2\n", Unpack(kName + ".zip")) << same;
    DeleteFile((disk / kName) + ".zip");
    (logger.*set)(same);
  }
}

TEST_F(LoggerTest, FilesEndAtMultiplesOfThePeriod) {
  const int64_t first_expiry = logger.Expiry();
  VirtualTime clock(VirtualTime::kDefaultWall + 1234);
  std::map<long, std::string> expected;  // the lines, by the multiple
  for (int i = 0; i < 6 * 360; ++i) {
    const time_t now = time(nullptr);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::gmtime(&now));
    logger.SetDateTime(std::string(text, 10), text + 11);
    logger.SetSeconds(now);
    if (i == 0) logger.SetSplitSeconds(3600);
    const std::string line = std::to_string(now) + "\n";
    expected[now / 3600] += line;
    logger.WriteDATA(line, 0);
    PollFor(10'000);
  }
  EXPECT_EQ(0, (logger.Expiry() - first_expiry) % 60'000'000'000);
  EXPECT_EQ(6, Packed());
  logger.StopLogging();
  ASSERT_EQ(expected.size(), disk.Names().size());
  auto file = expected.begin();
  for (const auto& name : disk.Names())  // all but the last are packed
    EXPECT_EQ(file++->second, (name.back() == 'p' ? Unpack(name) : disk.Read(name)).substr(kHeader.size())) << name;
  logger.SetSeconds(std::numeric_limits<int32_t>::max());
  logger.SetSplitSeconds(std::numeric_limits<int32_t>::max());  // no overflow
}

TEST_F(LoggerTest, AFullDiskShowsUntilTheFileEnds) {
  if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount";
  const auto result = RunInMountNamespace([&] {
    MountEmpty(disk.Path(), "size=64k");
    disk.Write("ballast", std::string(20'000, 'x'));
    std::string text = kHeader;
    for (int i = 0; logger.USBState() != 3 && i < 10'000; ++i, text += "0123456\n") logger.WriteDATA("0123456\n", 0);
    DeleteFile(disk / "ballast");
    for (int i = 0; i < 10'000; ++i) logger.WriteDATA("lost\n", 0);
    EXPECT_EQ(3, logger.USBState());
    logger.StopLogging();
    EXPECT_LT(40'000u, FileSize((disk / kName) + ".txt"));
    EXPECT_EQ(0u, text.find(disk.Read(kName + ".txt")));
    logger.StartLogging();
    logger.WriteDATA("1\n", 0);
    EXPECT_EQ(1, logger.USBState());
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
}

}  // namespace
