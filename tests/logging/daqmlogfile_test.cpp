#include "logging/daqmlogfile.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include "emulators/temp_directory.h"
#include "tests/support/captured_output.h"

namespace {

// What stands in the files is the fuzzer's.
TEST(DAQMLogFile, TellsWhyARowIsLost) {
  const TempDirectory dir;
  dir.Write("plain", "");
  setenv("TZ", "UTC0", 1);
  std::filesystem::create_symlink("/dev/full", dir / "2001-09-09-014640.full");
  struct Row {
    std::string directory, suffix, output;
    bool opened, written;
  };
  for (const Row& row :
       {Row{dir / "plain", ".txt",
            "ERROR logging DAQM data: Unable to create directory: \"" + (dir / "plain/") + "\": File exists\n", false,
            false},
        Row{dir / "a/b", ".txt",
            "ERROR logging DAQM data: Unable to create directory: \"" + (dir / "a/b/") +
                "\": No such file or directory\n",
            false, false},
        Row{dir / "made", "/none", "", false, false}, Row{dir / "made/", ".txt", "", true, true},
        Row{dir.Path(), ".full", "", true, false}}) {
    DAQMLogFile log(row.directory, row.suffix, "X");
    log.SetHeader({}, {});
    log.SetData(1'000'000'000, {});
    std::optional<CapturedOutput> output(std::in_place);
    const bool opened = log.LogData();
    const std::string text = output->Text();
    output.reset();
    EXPECT_EQ(opened, row.opened) << row.directory;
    EXPECT_EQ(log.IsWritten(), row.written) << row.directory;
    EXPECT_EQ(text, row.output);
  }
}

}  // namespace
