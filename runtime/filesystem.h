// Free functions over the system's file calls, and the walk over a directory.
//
// Queries forgive: a file that isn't there, or can't be looked at, gives false, zero or an empty text. Acting functions
// throw: ErrnoError with a fixed text and the path, unless another error is named.
//
// No shared state, and any thread may call, but for HomeDirectory and UserConfigDirectory: no thread may change the
// environment meanwhile, and without "HOME" they use the C library's one password entry (getpwuid(3)), so one thread at
// a time.

#pragma once

#include <dirent.h>

#include <cstdint>
#include <memory>
#include <string>

// Times are Unix time in whole seconds, cut to 32 bits.
struct FileSizeAndModTimeRecord {
  uint64_t size = 0;  // bytes
  int32_t mod_time = 0;
};

struct FileInformationRecord {
  uint32_t mode = 0;  // st_mode of stat(2): type and permissions
  uint64_t size = 0;  // bytes
  int32_t mod_time = 0;
};

struct PartitionRecord {
  uint64_t partition_size = 0;  // bytes
  uint64_t available = 0;       // bytes free for unprivileged users
};

// --- queries ---

// These two follow symbolic links.
bool IsDirectory(const std::string& path);
bool IsRegularFile(const std::string& path);

// Of a symbolic link itself, unless the name says otherwise.
uint64_t FileSize(const std::string& path);
uint64_t FileSizeFollowSymLink(const std::string& path);
int32_t FileModTime(const std::string& path);
int32_t FileModTimeFollowSymLink(const std::string& path);
FileSizeAndModTimeRecord FileSizeAndModTime(const std::string& path);

// What stands behind the last "/": the whole path if it has none, nothing if it ends in one.
std::string ExtractFilename(const std::string& path);

// The environment's "HOME", else the password entry's directory; empty where there is neither.
std::string HomeDirectory();

// --- acting functions ---

std::string CurrentWorkingDirectory();
void DeleteFile(const std::string& path);
// Returns when what a file holds, or the names in a directory, have reached the disk (fsync(2)): a power cut can't take
// them any more. A file system that can't tell says so by EINVAL, which is no error here.
void SyncToDisk(const std::string& path);
// Of a symbolic link itself.
FileInformationRecord FileInformation(const std::string& path);
PartitionRecord PartitionSizeAndAvailableSpace(const std::string& path);
void RenameFile(const std::string& from, const std::string& to);
// A reader finds the old text or the new one, whole, whenever the program or the power went: the text goes into a file
// beside it, with ".new" behind its name, which takes its place when it has reached the disk. On an error the old file
// is left as it was, and the one beside it may stay. One writer for each path.
void ReplaceFile(const std::string& path, const std::string& text);
void CreateSymLink(const std::string& target, const std::string& link);
// At most 255 characters of the target.
std::string ReadSymLink(const std::string& path);

// One level, with mode 0744. A directory that is there already is left as it is; anything else of that name is
// reported as ENOTDIR. An empty path is a std::runtime_error.
void MkDirectory(const std::string& path);
// A path that is missing or no directory is left as it is. An empty path is a std::runtime_error.
void RmDirectory(const std::string& path);

// ".config" in the home directory, created if need be.
std::string UserConfigDirectory();

// The name of the zone that "/etc/localtime" links to, such as "America/Chicago": "UTC" for a target outside a
// zoneinfo tree, ReadSymLink's error where there is no link.
std::string TimezoneString();

// --- directories ---

// An open directory handle.
class _DirList {
 public:
  // Does not throw: when the directory isn't open afterwards, errno tells why.
  explicit _DirList(const std::string& path) : _dir(opendir(path.c_str())) {}

  bool IsOpen() const { return _dir != nullptr; }

  // The next entry's bare name, in the system's order and "." and ".." among them, and its type as readdir(3) has it
  // (DT_DIR, DT_LNK ...) unless `type` is null. False leaves both as they were: errno is 0 at the end, else the error,
  // EBADF for a list that isn't open.
  bool GetNextEntry(std::string& name, int* type);

 private:
  struct Close {
    void operator()(DIR* dir) const { closedir(dir); }
  };
  std::unique_ptr<DIR, Close> _dir;
};

// Walks the entries of a directory as full paths, in the system's order and "." and ".." among them.
//
//   for (DirectoryIterator it(path), end; it != end; ++it) Use(*it);
//
// A copy opens the directory again and stands at its first entry: it is not a position. An iterator equals another one
// when both are at the end, or are the same object.
class DirectoryIterator {
 public:
  DirectoryIterator();  // the end
  explicit DirectoryIterator(const std::string& path);
  DirectoryIterator(const DirectoryIterator& other);
  DirectoryIterator& operator=(const DirectoryIterator& other);
  ~DirectoryIterator();

  // Throws std::runtime_error at the end.
  const std::string& operator*() const;
  // Stays where it is at the end. An entry that can't be read is thrown.
  DirectoryIterator& operator++();

  bool operator==(const DirectoryIterator& other) const { return _state == other._state; }

 private:
  struct State;
  std::unique_ptr<State> _state;  // null at the end
};

// A directory that comes and goes at its holder's word; it is not removed on destruction.
class TmpDir {
 public:
  explicit TmpDir(const std::string& path) : _path(path) {}
  void _MkDir() const { MkDirectory(_path); }
  void _RmDir() const { RmDirectory(_path); }

 private:
  const std::string _path;
};
