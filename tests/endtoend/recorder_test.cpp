#include "examples/recorder.h"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include "runtime/filesystem.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/poll_runner.h"
#include "tests/support/temp_directory.h"
#include "tests/support/virtual_time.h"

namespace {

using Names = std::set<std::string>;

const std::string kLine = "DATA\t1\t 93\n";

Names NamesIn(const std::string& directory) {
  Names names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) names.insert(entry.path().filename());
  return names;
}

TEST(Recorder, FinishesWhatWasLeft) {
  const TempDirectory disk;
  for (const char* name : {"a.txt.part", "b.txt", "b.txt.part", "b-2.txt", "c.part"}) disk.Write(name, name);
  disk.Write("empty.txt.part", "");
  const Recorder recorder({.directory = disk.Path()});
  EXPECT_EQ((Names{"a.txt", "b.txt", "b-2.txt", "b-2-2.txt", "c.part"}), disk.Names());
  EXPECT_EQ("a.txt.part", disk.Read("a.txt"));
  EXPECT_EQ("b.txt.part", disk.Read("b-2-2.txt"));
}

TEST(Recorder, NothingLandsWhereTheDiskHasGoneFrom) {
  if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount, and / to be a mount point";
  const TempDirectory board;
  const std::string place = board / "usb";
  MkDirectory(place);
  const auto result = RunInMountNamespace([&] {
    VirtualTime time;
    const auto take_away = [&] { ASSERT_EQ(0, umount2(place.c_str(), MNT_DETACH)); };
    MountEmpty(place);
    Recorder recorder({.directory = place});
    recorder.HeadGotLine(kLine);
    EXPECT_EQ(Names{"head-2024-03-01T000000.txt.part"}, NamesIn(place));
    for (const int wait : {1'000, 61'000}) {  // seen by the next line, and by the minute
      take_away();
      PollFor(wait);
      recorder.HeadGotLine(kLine);
      recorder.HeadGotLine(kLine);
      EXPECT_EQ(Names(), NamesIn(place));
      MountEmpty(place);
      PollFor(wait);
      recorder.HeadGotLine(kLine);
      EXPECT_EQ(1U, NamesIn(place).size());
    }
    EXPECT_EQ(3, recorder.Lines());
    take_away();
    std::filesystem::remove(place);
    PollFor(1'000);
    recorder.HeadGotLine(kLine);
    EXPECT_EQ(Names(), NamesIn(board.Path()));
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
}

}  // namespace
