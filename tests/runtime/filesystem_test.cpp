#include "runtime/filesystem.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

#include "runtime/errnoexcept.h"
#include "tests/support/child_process.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/temp_directory.h"

namespace {

// A file, a directory, links to each, a broken link and a loop.
class Filesystem : public testing::Test {
 protected:
  Filesystem() {
    dir.Write("file", "12345");
    MkDirectory(dir / "sub");
    CreateSymLink("file", dir / "link");
    CreateSymLink("sub", dir / "sublink");
    CreateSymLink("nowhere at all", dir / "broken");
    CreateSymLink("loop", dir / "loop");
    const timespec then[2] = {{100, 0}, {1000000000, 0}};
    utimensat(AT_FDCWD, (dir / "file").c_str(), then, 0);
  }
  TempDirectory dir;
};

TEST_F(Filesystem, QueriesForgive) {
  const struct {
    const char* name;
    bool directory, regular;
    uint64_t size, followed;
  } rows[] = {
      {"file", false, true, 5, 5},  {"link", false, true, 4, 5},  {"broken", false, false, 14, 0},
      {"loop", false, false, 4, 0}, {"none", false, false, 0, 0}, {"file/below", false, false, 0, 0},
      {"", true, false, 0, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string path = dir / row.name;
    EXPECT_EQ(row.directory, IsDirectory(path));
    EXPECT_EQ(row.regular, IsRegularFile(path));
    if (row.directory) continue;
    EXPECT_EQ(row.size, FileSize(path));
    EXPECT_EQ(row.size, FileSizeAndModTime(path).size);
    EXPECT_EQ(row.followed, FileSizeFollowSymLink(path));
    EXPECT_EQ(row.followed == 0 ? 0 : 1000000000, FileModTimeFollowSymLink(path));
    EXPECT_EQ(FileModTime(path), FileSizeAndModTime(path).mod_time);
  }
  EXPECT_TRUE(IsDirectory(dir / "sublink"));
  EXPECT_EQ(1000000000, FileModTime(dir / "file"));
  EXPECT_EQ(0, FileModTime(dir / "none"));
  EXPECT_GT(FileModTime(dir / "link"), 1000000000);

  EXPECT_EQ("b.txt", ExtractFilename("/a/b.txt"));
  EXPECT_EQ("b.txt", ExtractFilename("b.txt"));
  EXPECT_EQ("", ExtractFilename("/a/"));
}

TEST_F(Filesystem, ActsOnFiles) {
  RenameFile(dir / "file", dir / "moved");
  EXPECT_EQ(5u, FileSize(dir / "moved"));
  DeleteFile(dir / "moved");
  EXPECT_FALSE(IsRegularFile(dir / "moved"));
  EXPECT_EQ("nowhere at all", ReadSymLink(dir / "broken"));
  CreateSymLink(std::string(300, 'x'), dir / "long");
  EXPECT_EQ(std::string(255, 'x'), ReadSymLink(dir / "long"));

  const FileInformationRecord link = FileInformation(dir / "link");
  EXPECT_TRUE(S_ISLNK(link.mode));
  EXPECT_EQ(4u, link.size);
  EXPECT_EQ(FileModTime(dir / "link"), link.mod_time);

  struct statvfs expected {};
  ASSERT_EQ(0, statvfs(dir.Path().c_str(), &expected));
  EXPECT_EQ(uint64_t{expected.f_frsize} * expected.f_blocks, PartitionSizeAndAvailableSpace(dir.Path()).partition_size);

  EXPECT_EQ(0, RunInChild([&] {
                 chdir(dir.Path().c_str());
                 EXPECT_EQ(dir.Path(), CurrentWorkingDirectory());
               }).exit_status);
}

TEST_F(Filesystem, ErrorsNameWhatTheyAreAbout) {
  const std::string none = dir / "none", file = dir / "file", sub = dir / "sub", loop = dir / "loop";
  const struct {
    std::string text;
    int error;  // 0: no error of the system
    std::function<void()> act;
  } rows[] = {
      {"Unable to delete " + none, ENOENT, [&] { DeleteFile(none); }},
      {"Unable to get information for file: " + none, ENOENT, [&] { FileInformation(none); }},
      {"Unable to get information for file: " + loop + "/x", ELOOP, [&] { FileInformation(loop + "/x"); }},
      {"Unable to check disk space on: " + loop, ELOOP, [&] { PartitionSizeAndAvailableSpace(loop); }},
      {"Unable to rename " + none + " to " + file, ENOENT, [&] { RenameFile(none, file); }},
      {"Unable to create symlink " + file + " to file " + none, EEXIST, [&] { CreateSymLink(none, file); }},
      {"Unable to read symlink info at " + file, EINVAL, [&] { ReadSymLink(file); }},
      {"Unable to create directory without a name.", 0, [] { MkDirectory(""); }},
      {"File exists and is not a directory: \"" + file + "\"", ENOTDIR, [&] { MkDirectory(file); }},
      {"Unable to create directory: \"" + none + "/b\"", ENOENT, [&] { MkDirectory(none + "/b"); }},
      {"Unable to delete directory without a name.", 0, [] { RmDirectory(""); }},
      {"Unable to delete directory: \"" + dir.Path() + "\"", ENOTEMPTY, [&] { RmDirectory(dir.Path()); }},
      {"Unable to open directory: \"" + none + "\"", ENOENT, [&] { DirectoryIterator it(none); }},
      {"Unable to open directory: \"" + file + "\"", ENOTDIR, [&] { DirectoryIterator it(file); }},
      {"DirectoryIterator: Dereferenced passed the end", 0, [] { *DirectoryIterator(); }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    try {
      row.act();
      ADD_FAILURE() << "did not throw";
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(row.error == 0 ? row.text : row.text + ": " + std::strerror(row.error), error.what());
      EXPECT_EQ(row.error != 0, dynamic_cast<const ErrnoError*>(&error) != nullptr);
    }
  }
}

TEST_F(Filesystem, MakesAndRemovesDirectories) {
  umask(022);
  const TmpDir tmp(dir / "tmp");
  tmp._MkDir();
  tmp._MkDir();
  EXPECT_EQ(S_IFDIR | 0744u, FileInformation(dir / "tmp").mode);
  tmp._RmDir();
  tmp._RmDir();
  EXPECT_FALSE(IsDirectory(dir / "tmp"));
  RmDirectory(dir / "file");
  EXPECT_TRUE(IsRegularFile(dir / "file"));
}

TEST_F(Filesystem, WalksAllEntriesAndACopyStartsAgain) {
  std::vector<std::string> seen;
  const DirectoryIterator end;
  for (DirectoryIterator it(dir / "sub"); it != end; ++it) seen.push_back(*it);
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ((std::vector<std::string>{dir / "sub/.", dir / "sub/.."}), seen);

  DirectoryIterator it(dir.Path());
  const std::string first = *it;
  ++it;
  const DirectoryIterator copy(it);
  EXPECT_EQ(first, *copy);
  DirectoryIterator assigned;
  assigned = it;
  EXPECT_EQ(first, *assigned);
  assigned = end;
  EXPECT_EQ(end, ++assigned);

  _DirList list(dir.Path());
  std::string name;
  int type = 0;
  while (list.GetNextEntry(name, &type)) EXPECT_EQ(name == "sub", type == DT_DIR && name[0] != '.') << name;
  EXPECT_EQ(0, errno);
  EXPECT_FALSE(_DirList(dir / "none").IsOpen());
}

TEST_F(Filesystem, FindsTheHomeAndItsConfiguration) {
  const auto body = [&] {
    setenv("HOME", dir.Path().c_str(), 1);
    EXPECT_EQ(dir / ".config", UserConfigDirectory());
    EXPECT_EQ(dir / ".config", UserConfigDirectory());
    EXPECT_TRUE(IsDirectory(dir / ".config"));
    unsetenv("HOME");
    EXPECT_EQ(getpwuid(getuid())->pw_dir, HomeDirectory());
  };
  const auto result = RunInChild(body);
  EXPECT_EQ(0, result.exit_status) << result.output;
}

TEST_F(Filesystem, NamesTheZoneOfTheLink) {
  if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount";
  const struct {
    const char* target;  // null: no link
    const char* zone;    // null: ReadSymLink's error
  } rows[] = {
      {"/usr/share/zoneinfo/America/Chicago", "America/Chicago"},
      {"../usr/share/zoneinfo/posix/zoneinfo/UTC", "posix/zoneinfo/UTC"},
      {"/etc/zoneinfo", "UTC"},
      {nullptr, nullptr},
  };
  for (const auto& row : rows) {
    const auto body = [&row] {
      MountCopy("/etc");
      unlink("/etc/localtime");
      if (row.target != nullptr) CreateSymLink(row.target, "/etc/localtime");
      if (row.zone != nullptr)
        EXPECT_EQ(row.zone, TimezoneString());
      else
        EXPECT_THROW(TimezoneString(), ErrnoError);
    };
    const auto result = RunInMountNamespace(body);
    EXPECT_EQ(0, result.exit_status) << result.output;
  }
}

}  // namespace
