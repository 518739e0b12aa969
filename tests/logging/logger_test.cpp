#include "logging/logger.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <random>
#include <sstream>

#include "runtime/datachecksum.h"
#include "runtime/filesystem.h"
#include "runtime/runprogram.h"
#include "tests/support/captured_output.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/temp_directory.h"

namespace {

using Names = std::set<std::string>;
const std::string kName = "head-2024-05-01T123000";
const std::string kHeader =
    "Model:\tGPS Logger\nFile Type:\t2\nInstrument:\thead\nSerial Number:\tTG20\nSoftware Version:\t1.0.2\n"
    "Timestamp:\t2024-05-01 12:30:00\nTimezone:\tUTC\nDATAH\tSECONDS\tCHK\n";

// A logger that needs nothing but a line to open kName. The zip programs become children of the test.
class LoggerTest : public testing::Test {
 protected:
  LoggerTest() {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    logger.SetSN("TG20");
    logger.SetVersion("1.0.2");
    logger.SetDATAH("DATAH\tSECONDS\tCHK\n");
    logger.SetMountPath(disk.Path());
    logger.SetHostname("head");
    logger.SetDateTime("2024-05-01", "12:30:00");
  }

  ~LoggerTest() noexcept override { prctl(PR_SET_CHILD_SUBREAPER, 0); }

  // Waits for each zip and gives their count.
  static int Packed() {
    int count = 0;
    for (int status = 0; wait(&status) > 0; ++count) EXPECT_EQ(0, status);
    return count;
  }

  std::string Unpacked(const std::string& name) const {
    if (!name.ends_with(".zip")) return disk.Read(name);
    std::string text;
    EXPECT_EQ(0, RunProgramCaptureStdout("/usr/bin/unzip -p " + disk / name, text));
    return text;
  }

  // A line with its run and time every 10 seconds; a file for each hour, named by the time of its first line.
  void LogLines(int run, int begin, int end) {
    for (int now = begin; now < end; now += 10) {
      logger.SetDateTime("2024-05-01", std::to_string(now));
      logger.SetSeconds(now);
      if (now == begin) logger.SetSplitSeconds(3600);
      std::string line = "DATA\t" + std::to_string(run) + '\t' + std::to_string(now) + '\t';
      line.append(now % 193, '-') += '\t';
      AppendCheckSum(line);
      logger.WriteDATA(line, 0);
    }
  }

  const TempDirectory disk;
  Logger logger{"device", "UTC", true};
};

TEST_F(LoggerTest, AFileFromItsFirstLineToItsName) {
  const CapturedOutput output;
  EXPECT_EQ(2, logger.USBState());
  disk.Write(kName + ".txt.part", "before a power cut\nunfini");
  logger.WriteDATA("1\n", 0);
  EXPECT_EQ(1, logger.USBState());
  logger.SetDateTime("2024-05-02", "00:00:00");
  logger.SetDATAH("DATAH\tCHK\n");
  const std::string longer(20'000, '2');
  logger.WriteDATA(longer, 0);
  logger.WriteDATA("3\n", 0);
  logger.SetVersion("");
  logger.StopLogging();
  logger.WriteDATA("lost\n", 0);
  EXPECT_EQ(1, Packed());
  EXPECT_EQ(Names{kName + ".zip"}, disk.Names());
  EXPECT_EQ("before a power cut\nunfini" + kHeader + "1\nDATAH\tCHK\n" + longer + "3\n", Unpacked(kName + ".zip"));
  const std::string state = "Logger::USBState: ", part = "ogging to file: " + (disk / kName) + ".txt.part\n";
  EXPECT_EQ(state + "not logging\nL" + part + state + "logging\nStopped l" + part +
                "Zipping up file: " + (disk / kName) + ".txt\n",
            output.Text());
}

TEST_F(LoggerTest, NoFileWithoutAllThatItNeeds) {
  for (const std::string missing : {"disk", "host name", "date", "time"}) {
    logger.SetMountPath(missing == "disk" ? disk / "missing" : disk.Path());
    logger.SetHostname(missing == "host name" ? "" : "head");
    logger.SetDateTime(missing == "date" ? "" : "2024-05-01", missing == "time" ? "" : "12:30:00");
    logger.WriteDATA("lost\n", 0);
    EXPECT_EQ(2, logger.USBState()) << missing;
    EXPECT_EQ(Names(), disk.Names()) << missing;
  }
}

TEST_F(LoggerTest, AnotherHeaderTextEndsAndPacksTheFile) {
  for (const auto set : {&Logger::SetHostname, &Logger::SetSN, &Logger::SetVersion, &Logger::SetTimezone})
    for (const int packed : {1, 0}) {
      logger.WriteDATA("1\n", 0);
      (logger.*set)("other");
      EXPECT_EQ(packed, Packed());
    }
}

TEST_F(LoggerTest, KilledAtAnyMomentItLeavesWholeLinesAndGoesOn) {
  constexpr int kRuns = 201, kHour = 3'600;
  std::mt19937 random(kRuns);
  int begin = 1'000'000'123;
  for (int run = 1; run < kRuns; ++run) {
    const itimerspec moment{{}, {0, 1'000 + static_cast<long>(random() % 10'000'000)}};  // nanoseconds
    const auto body = [&] {
      sigevent event = {{}, SIGKILL, SIGEV_SIGNAL, {}};
      timer_t timer;
      timer_create(CLOCK_MONOTONIC, &event, &timer);
      timer_settime(timer, 0, &moment, nullptr);
      LogLines(run, begin, INT32_MAX);
    };
    EXPECT_EQ(SIGKILL, RunInChild(body).signal);
    Packed();
    // The next run goes on with the file that was open, or begins another.
    for (const auto& name : disk.Names())
      begin = std::stoi(name.substr(kName.find('T') + 1)) + (name.ends_with(".part") ? 0 : kHour);
  }
  LogLines(kRuns, begin, begin + 5 * kHour);
  logger.StopLogging();
  Packed();

  std::pair<int, int> last, line;  // run and time
  for (const auto& name : disk.Names()) {
    const int first = std::stoi(name.substr(kName.find('T') + 1));  // the time of the first line
    std::istringstream lines(Unpacked(name));
    for (std::string text; std::getline(lines, text) && !lines.eof(); last = line) {
      if (text.ends_with("Model:\tGPS Logger")) continue;  // perhaps behind the piece of a line
      if (kHeader.find(text.substr(0, text.find('\t') + 1)) != std::string::npos) continue;
      EXPECT_TRUE(CheckSumAgrees(text + '\n')) << name << ": " << text;
      std::sscanf(text.c_str(), "DATA\t%d\t%d\t", &line.first, &line.second);
      EXPECT_EQ(line.first == last.first ? last.second + 10 : first, line.second) << name;
      EXPECT_EQ(first / kHour, line.second / kHour) << name;
    }
  }
  EXPECT_EQ(std::pair(kRuns, begin + 5 * kHour - 10), last);
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
    EXPECT_EQ(text.substr(0, 65'536 - 20'480), disk.Read(kName + ".txt"));  // whole pages
    logger.StartLogging();
    logger.WriteDATA("1\n", 0);
    EXPECT_EQ(1, logger.USBState());
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
}

}  // namespace
