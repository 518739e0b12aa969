#include "runtime/filesystem.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "runtime/errnoexcept.h"
#include "runtime/streamfile.h"

namespace {

using StatCall = int(const char*, struct stat*);

// All zero for what isn't there: a mode of 0 is neither file nor directory.
struct stat StatOrZero(StatCall* call, const std::string& path) {
  struct stat info {};
  if (call(path.c_str(), &info) != 0) info = {};
  return info;
}

uint64_t SizeOf(const struct stat& info) {
  return static_cast<uint64_t>(info.st_size);
}
int32_t ModTimeOf(const struct stat& info) {
  return static_cast<int32_t>(info.st_mtime);
}

}  // namespace

bool IsDirectory(const std::string& path) {
  return S_ISDIR(StatOrZero(stat, path).st_mode);
}
bool IsRegularFile(const std::string& path) {
  return S_ISREG(StatOrZero(stat, path).st_mode);
}

uint64_t FileSize(const std::string& path) {
  return SizeOf(StatOrZero(lstat, path));
}
uint64_t FileSizeFollowSymLink(const std::string& path) {
  return SizeOf(StatOrZero(stat, path));
}
int32_t FileModTime(const std::string& path) {
  return ModTimeOf(StatOrZero(lstat, path));
}
int32_t FileModTimeFollowSymLink(const std::string& path) {
  return ModTimeOf(StatOrZero(stat, path));
}

FileSizeAndModTimeRecord FileSizeAndModTime(const std::string& path) {
  const struct stat info = StatOrZero(lstat, path);
  return {SizeOf(info), ModTimeOf(info)};
}

std::string ExtractFilename(const std::string& path) {
  return path.substr(path.rfind('/') + 1);  // npos + 1 is 0: all of it
}

std::string HomeDirectory() {
  if (const char* home = std::getenv("HOME")) return home;
  const passwd* entry = getpwuid(getuid());
  return entry != nullptr ? entry->pw_dir : "";
}

std::string CurrentWorkingDirectory() {
  const std::unique_ptr<char, decltype(&std::free)> path(getcwd(nullptr, 0), std::free);
  if (!path) ThrowErrno("Unable to read current working directory");
  return path.get();
}

void DeleteFile(const std::string& path) {
  if (unlink(path.c_str()) != 0) ThrowErrno("Unable to delete ", path);
}

void SyncToDisk(const std::string& path) {
  const StreamFile file(path, O_RDONLY | O_CLOEXEC);
  if (fsync(file.Fileno()) != 0 && errno != EINVAL) ThrowErrno("Unable to sync: ", path);
}

FileInformationRecord FileInformation(const std::string& path) {
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0) ThrowErrno("Unable to get information for file: ", path);
  return {static_cast<uint32_t>(info.st_mode), SizeOf(info), ModTimeOf(info)};
}

PartitionRecord PartitionSizeAndAvailableSpace(const std::string& path) {
  struct statvfs info {};
  if (statvfs(path.c_str(), &info) != 0) ThrowErrno("Unable to check disk space on: ", path);
  // Two different units, meant so.
  return {uint64_t{info.f_frsize} * info.f_blocks, uint64_t{info.f_bsize} * info.f_bavail};
}

void RenameFile(const std::string& from, const std::string& to) {
  if (rename(from.c_str(), to.c_str()) != 0) ThrowErrno("Unable to rename ", from, " to ", to);
}

void ReplaceFile(const std::string& path, const std::string& text) {
  const std::string beside = path + ".new";
  const int fd = open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) ThrowErrno("Unable to open: ", beside);
  StreamFileBase file(fd);
  file.OStream() << text << std::flush;
  if (!file.OStream().good()) throw std::runtime_error("Unable to write: " + beside);
  if (fsync(file.Fileno()) != 0) ThrowErrno("Unable to sync: ", beside);
  file._close();
  RenameFile(beside, path);

  // The new name too has to reach the disk.
  const std::string directory = path.substr(0, path.rfind('/') + 1);
  SyncToDisk(directory.empty() ? "." : directory);
}

void CreateSymLink(const std::string& target, const std::string& link) {
  if (symlink(target.c_str(), link.c_str()) != 0) ThrowErrno("Unable to create symlink ", link, " to file ", target);
}

std::string ReadSymLink(const std::string& path) {
  char target[256]{};  // the last byte stays zero
  if (readlink(path.c_str(), target, sizeof target - 1) < 0) ThrowErrno("Unable to read symlink info at ", path);
  return target;
}

void MkDirectory(const std::string& path) {
  if (path.empty()) throw std::runtime_error("Unable to create directory without a name.");
  const mode_t there = StatOrZero(stat, path).st_mode;
  if (S_ISDIR(there)) return;
  if (there != 0) throw ErrnoError("File exists and is not a directory: \"" + path + "\"", ENOTDIR);
  if (mkdir(path.c_str(), 0744) != 0) ThrowErrno("Unable to create directory: \"", path, "\"");
}

void RmDirectory(const std::string& path) {
  if (path.empty()) throw std::runtime_error("Unable to delete directory without a name.");
  if (IsDirectory(path) && rmdir(path.c_str()) != 0) ThrowErrno("Unable to delete directory: \"", path, "\"");
}

std::string UserConfigDirectory() {
  std::string path = HomeDirectory() + "/.config";
  MkDirectory(path);
  return path;
}

std::string TimezoneString() {
  constexpr std::string_view kTree = "/zoneinfo/";
  const std::string target = ReadSymLink("/etc/localtime");
  const size_t tree = target.find(kTree);
  return tree == std::string::npos ? "UTC" : target.substr(tree + kTree.size());
}

bool _DirList::GetNextEntry(std::string& name, int* type) {
  errno = IsOpen() ? 0 : EBADF;
  if (!IsOpen()) return false;
  const dirent* entry = readdir(_dir.get());
  if (entry == nullptr) return false;
  name = entry->d_name;
  if (type != nullptr) *type = entry->d_type;
  return true;
}

struct DirectoryIterator::State {
  explicit State(const std::string& in_path) : path(in_path), entries(path) {
    if (!entries.IsOpen()) ThrowErrno("Unable to open directory: \"", path, "\"");
  }
  const std::string path;
  _DirList entries;
  std::string name;
  std::string current;  // full path
};

DirectoryIterator::DirectoryIterator() = default;
DirectoryIterator::~DirectoryIterator() = default;

DirectoryIterator::DirectoryIterator(const std::string& path) : _state(std::make_unique<State>(path)) {
  ++*this;
}

DirectoryIterator::DirectoryIterator(const DirectoryIterator& other) {
  if (!other._state) return;
  _state = std::make_unique<State>(other._state->path);
  ++*this;
}

DirectoryIterator& DirectoryIterator::operator=(const DirectoryIterator& other) {
  _state = std::move(DirectoryIterator(other)._state);
  return *this;
}

const std::string& DirectoryIterator::operator*() const {
  if (!_state) throw std::runtime_error("DirectoryIterator: Dereferenced passed the end");
  return _state->current;
}

DirectoryIterator& DirectoryIterator::operator++() {
  if (!_state) return *this;
  // The two texts keep their memory from entry to entry: a walk over 100,000 files allocates nothing for them.
  if (_state->entries.GetNextEntry(_state->name, nullptr))
    _state->current.assign(_state->path).append("/").append(_state->name);
  else if (errno != 0)
    ThrowErrno("Unable to read directory: \"", _state->path, "\"");
  else
    _state.reset();
  return *this;
}
