// A directory of one's own, removed with all that is in it.

#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "emulators/must.h"

class TempDirectory {
 public:
  // Throws ErrnoError.
  explicit TempDirectory(const std::filesystem::path& place = std::filesystem::temp_directory_path()) {
    std::string name = place / "moorlog-XXXXXX";
    Must(mkdtemp(name.data()) != nullptr, "make ", name);
    _path = std::filesystem::canonical(name);
  }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;
  // A forked child leaves it to the process that made it.
  ~TempDirectory() {
    if (getpid() != _owner) return;
    // Again where somebody has just made or taken away a file there, as a zip(1) that goes on.
    std::error_code error;
    for (int attempt = 0; attempt < 100 && (std::filesystem::remove_all(_path, error), error); ++attempt)
      usleep(10'000);
  }

  // A place in memory where there is one: for many small files, and where file calls are measured and not a disk.
  static std::filesystem::path Memory() {
    return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::filesystem::temp_directory_path();
  }

  // Absolute, without a slash at the end.
  const std::string& Path() const { return _path.native(); }
  std::string operator/(const std::string& name) const { return (_path / name).string(); }

  // Replaces the file; directories on the way to it are made.
  void Write(const std::string& name, const std::string& content) const {
    std::filesystem::create_directories((_path / name).parent_path());
    std::ofstream(_path / name, std::ios::binary) << content;
  }
  // Empty when there is no such file.
  std::string Read(const std::string& name) const {
    std::ifstream file(_path / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // Of all entries, bare.
  std::set<std::string> Names() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(_path)) names.insert(entry.path().filename());
    return names;
  }

 private:
  const pid_t _owner = getpid();
  std::filesystem::path _path;
};
