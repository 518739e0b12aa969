// A directory in memory where there is one, so that the system's file calls are measured and not a disk. Removed with
// all that is in it.

#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

class MemoryDirectory {
 public:
  MemoryDirectory() {
    const char* parent = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    _path = std::string(parent) + "/moorlog-bench-XXXXXX";
    if (mkdtemp(_path.data()) == nullptr) throw std::runtime_error("no directory in " + std::string(parent));
  }
  MemoryDirectory(const MemoryDirectory&) = delete;
  MemoryDirectory& operator=(const MemoryDirectory&) = delete;
  ~MemoryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
  }

  const std::string& Path() const { return _path; }

 private:
  std::string _path;
};
