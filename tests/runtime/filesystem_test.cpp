#include "runtime/filesystem.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <set>

#include "emulators/temp_directory.h"
#include "runtime/errnoexcept.h"
#include "tests/support/error_text.h"
#include "tests/support/mount_namespace.h"

// What no disk here gives: two units that differ, and an error of its own.
int failure = 0;
extern "C" int __real_fsync(int fd);
extern "C" int __wrap_fsync(int fd) {
  return (errno = failure) != 0 ? -1 : __real_fsync(fd);
}
extern "C" dirent* __real_readdir64(DIR* directory);
extern "C" dirent* __wrap_readdir64(DIR* directory) {
  return (errno = failure) != 0 ? nullptr : __real_readdir64(directory);
}
extern "C" int __wrap_statvfs64(const char* path, struct statvfs* info) {
  *info = {};
  info->f_bsize = 4096, info->f_frsize = 512, info->f_blocks = 1ULL << 33, info->f_bfree = 20, info->f_bavail = 7;
  return access(path, F_OK);
}

namespace {

struct Filesystem : testing::Test {
  Filesystem() {
    dir.Write("file", "12345");
    MkDirectory(dir / "sub");
    for (const auto& [target, link] : {std::pair{"file", "link"}, {"nowhere at all", "broken"}, {"loop", "loop"}})
      CreateSymLink(target, dir / link);
  }
  const TempDirectory dir;
};

TEST_F(Filesystem, QueriesForgive) {
  const struct {
    const char* name;
    uint64_t size, followed;
  } rows[] = {{"file", 5, 5}, {"link", 4, 5}, {"broken", 14, 0}, {"loop", 4, 0}, {"file/below", 0, 0}};
  for (const auto& [name, size, followed] : rows) {
    const std::string path = dir / name;
    EXPECT_TRUE(!IsDirectory(path) && IsRegularFile(path) == (followed != 0)) << name;
    EXPECT_TRUE(FileSize(path) == size && FileSizeFollowSymLink(path) == followed) << name;
    EXPECT_TRUE(FileSizeAndModTime(path).size == size && (FileModTime(path) != 0) == (size != 0)) << name;
    EXPECT_EQ(followed != 0, FileModTimeFollowSymLink(path) != 0) << name;
  }
}

TEST_F(Filesystem, ActsOnFilesAndDirectories) {
  RenameFile(dir / "file", dir / "moved");
  DeleteFile(dir / "moved");
  CreateSymLink(std::string(300, 'x'), dir / "long");
  EXPECT_EQ(std::string(255, 'x'), ReadSymLink(dir / "long"));
  EXPECT_TRUE(S_ISLNK(FileInformation(dir / "link").mode) && FileInformation(dir / "link").size == 4);
  const PartitionRecord disk = PartitionSizeAndAvailableSpace(dir.Path());
  EXPECT_TRUE(disk.partition_size == 512ULL << 33 && disk.available == 28672);
  for (const int harmless : {0, EINVAL}) failure = harmless, SyncToDisk(dir / "sub");
  failure = 0;
  umask(022);
  const TmpDir tmp(dir / "tmp");
  for (int twice = 0; twice < 2; ++twice) tmp._MkDir();
  EXPECT_EQ(S_IFDIR | 0744u, FileInformation(dir / "tmp").mode);
  for (int twice = 0; twice < 2; ++twice) tmp._RmDir();
  RmDirectory(dir / "link");
  EXPECT_EQ((std::set<std::string>{"broken", "link", "long", "loop", "sub"}), dir.Names());
}

TEST_F(Filesystem, ErrorsNameWhatTheyAreAbout) {
  const std::string none = dir / "none", file = dir / "file";
  const std::string no_file = ": No such file or directory", no_directory = ": Not a directory";
  const std::pair<std::string, std::function<void()>> rows[] = {
      {"Unable to delete " + dir / "sub" + ": Is a directory", [&] { DeleteFile(dir / "sub"); }},
      {"StreamFile: Unable to open " + none + no_file, [&] { SyncToDisk(none); }},
      {"Unable to get information for file: " + none + no_file, [&] { FileInformation(none); }},
      {"Unable to check disk space on: " + none + no_file, [&] { PartitionSizeAndAvailableSpace(none); }},
      {"Unable to rename " + none + " to " + file + no_file, [&] { RenameFile(none, file); }},
      {"Unable to create symlink " + file + " to file " + none + ": File exists", [&] { CreateSymLink(none, file); }},
      {"Unable to read symlink info at " + file + ": Invalid argument", [&] { ReadSymLink(file); }},
      {"Unable to create directory without a name.", [] { MkDirectory(""); }},
      {"File exists and is not a directory: \"" + file + "\"" + no_directory, [&] { MkDirectory(file); }},
      {"Unable to create directory: \"" + none + "/b\"" + no_file, [&] { MkDirectory(none + "/b"); }},
      {"Unable to delete directory without a name.", [] { RmDirectory(""); }},
      {"Unable to delete directory: \"" + dir.Path() + "\": Directory not empty", [&] { RmDirectory(dir.Path()); }},
      {"Unable to open directory: \"" + file + "\"" + no_directory, [&] { DirectoryIterator it(file); }},
      {"DirectoryIterator: Dereferenced passed the end", [] { *DirectoryIterator(); }}};
  for (const auto& [text, act] : rows) EXPECT_EQ(text, ErrorText(act));
}

TEST_F(Filesystem, WalksAllEntriesAndACopyStartsAgain) {
  std::multiset<std::string> seen;
  const DirectoryIterator end;
  for (DirectoryIterator it(dir / "sub"); it != end; ++it) seen.insert(*it);
  EXPECT_EQ((std::multiset<std::string>{dir / "sub/.", dir / "sub/.."}), seen);
  DirectoryIterator it(dir.Path());
  const std::string first = *it;
  EXPECT_EQ(first, *DirectoryIterator(++it));
  EXPECT_TRUE(++DirectoryIterator(end) == end && it != end);
  const std::pair<std::string, std::function<void()>> rows[] = {
      {"Unable to read directory: \"" + dir.Path() + "\": Input/output error", [&] { ++it; }},
      {"Unable to sync: " + dir.Path() + ": Input/output error", [&] { SyncToDisk(dir.Path()); }}};
  failure = EIO;
  for (const auto& [text, act] : rows) EXPECT_EQ(text, ErrorText(act));
  failure = 0;
  _DirList list(dir.Path());
  int type = 0;
  for (std::string name; list.GetNextEntry(name, &type);) EXPECT_EQ(name == "sub", type == DT_DIR && name[0] != '.');
  _DirList closed(dir / "none");
  std::string name;
  EXPECT_TRUE(!closed.IsOpen() && !closed.GetNextEntry(name, nullptr) && errno == EBADF && name.empty());
}

TEST_F(Filesystem, FindsHomeConfigurationWorkingDirectoryAndTheZoneOfTheLink) {
  ExpectInMountNamespace([&] {
    setenv("HOME", dir.Path().c_str(), 1);
    for (int twice = 0; twice < 2; ++twice) EXPECT_EQ(dir / ".config", UserConfigDirectory());
    EXPECT_TRUE(IsDirectory(dir / ".config"));
    unsetenv("HOME");
    EXPECT_EQ(getpwuid(getuid())->pw_dir, HomeDirectory());
    EXPECT_EQ(0, setresuid(54'321, 0, 0));  // nobody's
    EXPECT_EQ("", HomeDirectory());
    EXPECT_EQ(0, chdir((dir / "sub").c_str()));
    EXPECT_EQ(dir / "sub", CurrentWorkingDirectory());
    RmDirectory(dir / "sub");
    EXPECT_EQ("Unable to read current working directory: No such file or directory",
              ErrorText([] { CurrentWorkingDirectory(); }));
    MountEmpty("/etc");
    EXPECT_THROW(TimezoneString(), ErrnoError);
    for (const auto& [target, zone] : {std::pair{"/usr/share/zoneinfo/America/Chicago", "America/Chicago"},
                                       {"../zoneinfo/posix/zoneinfo/UTC", "posix/zoneinfo/UTC"},
                                       {"/etc/zoneinfo", "UTC"}}) {
      CreateSymLink(target, "/etc/localtime");
      EXPECT_EQ(zone, TimezoneString());
      DeleteFile("/etc/localtime");
    }
  });
}

}  // namespace
