#include "runtime/filesystem.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <set>

#include "runtime/errnoexcept.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/temp_directory.h"

namespace {

struct Filesystem : testing::Test {
  Filesystem() {
    dir.Write("file", "12345");
    MkDirectory(dir / "sub");
    CreateSymLink("file", dir / "link");
    CreateSymLink("nowhere at all", dir / "broken");
    CreateSymLink("loop", dir / "loop");
  }
  TempDirectory dir;
};

TEST_F(Filesystem, QueriesForgive) {
  const struct {
    const char* name;
    uint64_t size, followed;
  } rows[] = {{"file", 5, 5}, {"link", 4, 5}, {"broken", 14, 0}, {"loop", 4, 0}, {"none", 0, 0}, {"file/below", 0, 0}};
  for (const auto& [name, size, followed] : rows) {
    SCOPED_TRACE(name);
    const std::string path = dir / name;
    EXPECT_FALSE(IsDirectory(path));
    EXPECT_EQ(followed != 0, IsRegularFile(path));
    EXPECT_EQ(size, FileSize(path));
    EXPECT_EQ(size, FileSizeAndModTime(path).size);
    EXPECT_EQ(followed, FileSizeFollowSymLink(path));
    EXPECT_EQ(size != 0, FileModTime(path) != 0);
    EXPECT_EQ(FileModTime(path), FileSizeAndModTime(path).mod_time);
    EXPECT_EQ(followed != 0, FileModTimeFollowSymLink(path) != 0);
  }
  EXPECT_EQ("b.txt", ExtractFilename("/a/b.txt"));
  EXPECT_EQ("b.txt", ExtractFilename("b.txt"));
  EXPECT_EQ("", ExtractFilename("/a/"));
}

TEST_F(Filesystem, ActsOnFilesAndDirectories) {
  RenameFile(dir / "file", dir / "moved");
  DeleteFile(dir / "moved");
  EXPECT_EQ(0u, FileSize(dir / "moved"));
  CreateSymLink(std::string(300, 'x'), dir / "long");
  EXPECT_EQ(std::string(255, 'x'), ReadSymLink(dir / "long"));
  const FileInformationRecord link = FileInformation(dir / "link");
  EXPECT_TRUE(S_ISLNK(link.mode) && link.size == 4 && link.mod_time == FileModTime(dir / "link"));
  struct statvfs expected {};
  ASSERT_EQ(0, statvfs(dir.Path().c_str(), &expected));
  EXPECT_EQ(uint64_t{expected.f_frsize} * expected.f_blocks, PartitionSizeAndAvailableSpace(dir.Path()).partition_size);

  umask(022);
  const TmpDir tmp(dir / "tmp");
  for (int twice = 0; twice < 2; ++twice) tmp._MkDir();
  EXPECT_EQ(S_IFDIR | 0744u, FileInformation(dir / "tmp").mode);
  for (int twice = 0; twice < 2; ++twice) tmp._RmDir();
  EXPECT_FALSE(IsDirectory(dir / "tmp"));
  RmDirectory(dir / "link");
  EXPECT_EQ(4u, FileSize(dir / "link"));
}

TEST_F(Filesystem, ErrorsNameWhatTheyAreAbout) {
  const std::string none = dir / "none", file = dir / "file", loop = dir / "loop";
  const struct {
    std::string text;
    int error;  // 0: no error of the system
    std::function<void()> act;
  } rows[] = {{"Unable to delete " + none, ENOENT, [&] { DeleteFile(none); }},
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
              {"Unable to open directory: \"" + file + "\"", ENOTDIR, [&] { DirectoryIterator it(file); }},
              {"DirectoryIterator: Dereferenced passed the end", 0, [] { *DirectoryIterator(); }}};
  for (const auto& [text, number, act] : rows) try {
      act();
      ADD_FAILURE() << text;
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(number == 0 ? text : text + ": " + std::strerror(number), error.what());
      EXPECT_EQ(number != 0, dynamic_cast<const ErrnoError*>(&error) != nullptr) << text;
    }
}

TEST_F(Filesystem, WalksAllEntriesAndACopyStartsAgain) {
  std::multiset<std::string> seen;
  const DirectoryIterator end;
  for (DirectoryIterator it(dir / "sub"); it != end; ++it) seen.insert(*it);
  EXPECT_EQ((std::multiset<std::string>{dir / "sub/.", dir / "sub/.."}), seen);

  DirectoryIterator it(dir.Path());
  const std::string first = *it;
  DirectoryIterator copy(++it);
  EXPECT_EQ(first, *copy);
  copy = end;
  EXPECT_EQ(end, ++copy);
  copy = it;
  EXPECT_EQ(first, *copy);

  _DirList list(dir.Path());
  std::string name;
  int type = 0;
  while (list.GetNextEntry(name, &type)) EXPECT_EQ(name == "sub", type == DT_DIR && name[0] != '.') << name;
  EXPECT_FALSE(_DirList(dir / "none").IsOpen());
}

TEST_F(Filesystem, FindsHomeConfigurationAndWorkingDirectory) {
  const auto body = [&] {
    setenv("HOME", dir.Path().c_str(), 1);
    for (int twice = 0; twice < 2; ++twice) EXPECT_EQ(dir / ".config", UserConfigDirectory());
    EXPECT_TRUE(IsDirectory(dir / ".config"));
    unsetenv("HOME");
    EXPECT_EQ(getpwuid(getuid())->pw_dir, HomeDirectory());
    EXPECT_EQ(0, chdir(dir.Path().c_str()));
    EXPECT_EQ(dir.Path(), CurrentWorkingDirectory());
  };
  const auto result = RunInChild(body);
  EXPECT_EQ(0, result.exit_status) << result.output;
}

TEST_F(Filesystem, NamesTheZoneOfTheLink) {
  if (!MountNamespaceAvailable()) GTEST_SKIP() << "needs the right to mount";
  const auto body = [] {
    MountCopy("/etc");
    unlink("/etc/localtime");
    EXPECT_THROW(TimezoneString(), ErrnoError);
    for (const auto& [target, zone] : {std::pair{"/usr/share/zoneinfo/America/Chicago", "America/Chicago"},
                                       {"../zoneinfo/posix/zoneinfo/UTC", "posix/zoneinfo/UTC"},
                                       {"/etc/zoneinfo", "UTC"}}) {
      CreateSymLink(target, "/etc/localtime");
      EXPECT_EQ(zone, TimezoneString());
      DeleteFile("/etc/localtime");
    }
  };
  const auto result = RunInMountNamespace(body);
  EXPECT_EQ(0, result.exit_status) << result.output;
}

}  // namespace
