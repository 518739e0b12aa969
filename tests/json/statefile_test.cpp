#include "json/statefile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <vector>

#include "emulators/temp_directory.h"
#include "tests/support/child_process.h"
#include "tests/support/error_text.h"
#include "tests/support/mount_namespace.h"

namespace {

std::vector<std::string> calls;  // in their order
std::string failing;

int Noted(const std::string& call) {
  calls.push_back(call);
  errno = EIO;
  return call == failing ? -1 : 0;
}

}  // namespace

extern "C" int __wrap_fsync(int fileno) {
  return Noted("sync " + std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fileno)).filename().string());
}
extern "C" int __real_rename(const char* from, const char* to);
extern "C" int __wrap_rename(const char* from, const char* to) {
  return Noted("rename") < 0 ? -1 : __real_rename(from, to);
}

namespace {

TEST(StateFile, ReachesTheDiskBeforeItTakesItsPlace) {
  const TempDirectory dir;
  const std::string name = std::filesystem::path(dir.Path()).filename();
  WriteStateFile(dir / "state", Json::objectValue);
  EXPECT_EQ(calls, (std::vector<std::string>{"sync state.new", "rename", "sync " + name}));
  for (const char* call : {"sync state.new", "rename"}) {
    failing = call;
    EXPECT_NE(ErrorText([&] { WriteStateFile(dir / "state", "new"); }).find("Input/output error"), std::string::npos);
    EXPECT_EQ(dir.Read("state"), "{}\n");
  }
  failing.clear();
}

TEST(StateFile, WhatIsNoObjectReadsAsAnEmptyOne) {
  const TempDirectory dir;
  const Json::Value empty = Json::objectValue;
  EXPECT_EQ(ReadStateFile(dir / "missing"), empty);
  EXPECT_EQ(ReadStateFile(dir.Path()), empty);
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(ReadStateFile(dir / "fifo"), empty);
  for (const std::string& text : {std::string(), std::string("{\"a\":1"), std::string("[1]"), std::string("7"),
                                  std::string(5000, '['), std::string("\0\xFF{", 3)}) {
    dir.Write("state", text);
    EXPECT_EQ(ReadStateFile(dir / "state"), empty) << text;
  }
}

TEST(StateFile, MakesItsDirectoryAndReplacesTheWholeFile) {
  const TempDirectory dir;
  Json::Value state;
  state["file\n\"1\"\xE9"]["obs"] = 12;
  state["long"] = std::string(50'000, 'x');
  WriteStateFile(dir / "config/state", state);
  EXPECT_EQ(ReadStateFile(dir / "config/state"), state);
  WriteStateFile(dir / "config/state", Json::objectValue);
  EXPECT_EQ(dir.Read("config/state"), "{}\n");
  EXPECT_EQ(dir.Read("config/state.new"), "");
  EXPECT_NE(ErrorText([&] { WriteStateFile(dir / "no/such/state", state); }), "nothing thrown");
  ExpectInChild([&] {  // a bare name is one of the working directory
    ASSERT_EQ(chdir(dir.Path().c_str()), 0);
    WriteStateFile("bare", state);
  });
  EXPECT_EQ(ReadStateFile(dir / "bare"), state);
}

TEST(StateFile, AFullDiskLeavesTheOldFile) {
  const TempDirectory dir;
  ExpectInMountNamespace([&] {
    MountEmpty(dir.Path(), "size=16k");
    Json::Value state;
    state["kept"] = true;
    WriteStateFile(dir / "state", state);
    Json::Value large;
    large["large"] = std::string(100'000, 'x');
    EXPECT_EQ(ErrorText([&] { WriteStateFile(dir / "state", large); }), "Unable to write: " + (dir / "state.new"));
    EXPECT_EQ(ReadStateFile(dir / "state"), state);
  });
}

}  // namespace
