#include "logging/logger.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <map>
#include <optional>
#include <random>

#include "runtime/filesystem.h"
#include "runtime/runprogram.h"
#include "tests/support/captured_output.h"
#include "tests/support/child_process.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/temp_directory.h"

namespace {

using Files = std::map<std::string, std::string>;  // what each path holds

// The zip programs become children of the test.
class LoggerTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!AdoptOrphans()) GTEST_SKIP() << "the zip programs couldn't be waited for";
  }

  // Waits for each zip and gives their count.
  static int Packed() {
    int count = 0;
    for (int status = 0; wait(&status) > 0; ++count) EXPECT_EQ(0, status);
    return count;
  }

  std::string Content(const std::string& path) const {
    std::string text = disk.Read(path);
    if (path.ends_with(".zip")) RunProgramCaptureStdout("/usr/bin/unzip -p " + path, text);
    return text;
  }

  const TempDirectory disk;
};

// What a logger should do, in memory and without a bound.
struct SecondForm {
  void Write(const std::string& line) {
    if (split > 0 && seconds >= next) {
      Close(true);
      SetSplit(split);
    }
    if (base.empty()) Open();
    if (!base.empty()) files[base + ".txt.part"] += line;
  }
  void Open() {
    if (!logging || mount.empty() || texts[0].empty() || date.empty() || time.empty() || mount.ends_with("none"))
      return;
    base = mount + '/' + texts[0] + '-' + date + 'T';
    for (const char c : time) base += c == ':' ? "" : std::string(1, c);
    output += "Logging to file: " + base + ".txt.part\n";
    files[base + ".txt.part"] += "Model:\tGPS Logger\nFile Type:\t2\nInstrument:\t" + texts[0] + "\nSerial Number:\t" +
                                 texts[1] + "\nSoftware Version:\t" + texts[2] + "\nTimestamp:\t" + date + ' ' + time +
                                 "\nTimezone:\t" + texts[3] + '\n' + columns;
  }
  void Close(bool pack) {
    if (base.empty()) return;
    const std::string text = base + ".txt";
    files[pack ? base + ".zip" : text] = files[text + ".part"];
    files.erase(text + ".part");
    if (pack) files.erase(text);
    packed += pack ? 1 : 0;
    output += "Stopped logging to file: " + text + ".part\n" + (pack ? "Zipping up file: " + text + '\n' : "");
    base.clear();
  }
  void SetText(size_t which, const std::string& text) {
    if (std::exchange(texts[which], text) != text) Close(true);
  }
  void SetSplit(int length) {
    split = length;
    if (split > 0) next = seconds - seconds % split + split;
  }
  int State() {
    const int now = mount.empty() ? 0 : base.empty() ? 2 : 1;
    const char* const words[] = {"none\n", "logging\n", "not logging\n"};
    if (std::exchange(state, now) != now) output += std::string("Logger::USBState: ") + words[now];
    return now;
  }

  Files files;
  std::string output, mount, date, time, columns, base;  // `base` of the open file
  std::string texts[4] = {"", "", "", "UTC"};
  int seconds = 0, split = 0, next = 0, state = -1, packed = 0;
  bool logging = true;
};

TEST_F(LoggerTest, DoesWhatIsAskedInAnyOrder) {
  static constexpr decltype(&Logger::SetSN) kSetters[] = {&Logger::SetHostname, &Logger::SetSN, &Logger::SetVersion,
                                                          &Logger::SetTimezone};
  std::mt19937 random(1);
  const auto any = [&](const std::vector<std::string>& texts) { return texts[random() % texts.size()]; };
  disk.Write("b/a-2024T12.txt.part", "before a power cut\n");
  SecondForm expected;
  expected.files[disk / "b/a-2024T12.txt.part"] = "before a power cut\n";
  const CapturedOutput output;
  std::optional<Logger> logger(std::in_place, "device", "UTC", false);
  EXPECT_TRUE(logger->IsActive());
  const int64_t expiry = logger->Expiry();
  logger->HandleTimeout();
  EXPECT_EQ(expiry + 60'000'000'000, logger->Expiry());
  int packed = 0;
  // The last file is open when the logger goes.
  for (int step = 0; step < 2'000 || expected.base.empty(); ++step, packed += Packed()) {
    // Whoever kills it finds whole lines, and nearly all of them.
    const std::string part = expected.base + ".txt.part", written = Content(part);
    EXPECT_TRUE(expected.base.empty() ||
                (expected.files[part].starts_with(written) && ('\n' + written).ends_with('\n') &&
                 written.size() + 8'192 >= expected.files[part].size()));
    const size_t which = random() % 32;
    const std::string line = std::to_string(step) + std::string(which == 0 ? random() % 20'000 : which, '.') + '\n';
    if (which == 31) {
      logger->SetMountPath(expected.mount = any({"", disk / "none", disk / "b", disk.Path(), disk.Path()}));
    } else if (which == 30) {
      const size_t text = random() % 4;
      const std::string value = any({"", "a", "b", "b", "b"});
      (*logger.*kSetters[text])(value);
      expected.SetText(text, value);
    } else if (which == 29) {
      expected.date = any({"", "2024", "2025", "2025"});
      logger->SetDateTime(expected.date, expected.time = any({"", "1:2", ":3:4:5", "7"}));
    } else if (which == 28) {
      logger->SetDATAH(expected.columns = any({"", "DATAH\tX\n"}));
      if (!expected.base.empty()) expected.files[expected.base + ".txt.part"] += expected.columns;
    } else if (which == 27) {
      expected.logging = random() % 4 != 0;
      expected.logging ? logger->StartLogging() : logger->StopLogging();
      if (!expected.logging) expected.Close(false);
    } else if (which == 26) {
      const int split = static_cast<int>(random() % 60) - 10;
      logger->SetSplitSeconds(split);
      expected.SetSplit(split);
    } else if (which >= 22) {
      logger->SetSeconds(expected.seconds += static_cast<int>(random() % 4));
    } else if (which >= 18) {
      ASSERT_EQ(expected.State(), logger->USBState()) << step;
    } else {
      logger->WriteDATA(line, 0);
      expected.Write(line);
    }
  }
  logger.reset();
  expected.Close(false);
  EXPECT_EQ(expected.packed, packed);
  EXPECT_EQ(expected.output, output.Text());
  Files found;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(disk.Path()))
    if (entry.is_regular_file()) found[entry.path()] = Content(entry.path());
  EXPECT_EQ(expected.files, found);
}

TEST_F(LoggerTest, AFullDiskShowsUntilTheFileEnds) {
  if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount, and / to be a mount point";
  const auto result = RunInMountNamespace([&] {
    MountEmpty(disk.Path(), "size=64k");
    disk.Write("ballast", std::string(20'000, 'x'));
    Logger logger("device", "UTC", true);
    logger.SetMountPath(disk.Path());
    logger.SetHostname("head");
    logger.SetDateTime("2024", "12");
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
  EXPECT_EQ(0, result.exit_status) << result.output;
}

}  // namespace
