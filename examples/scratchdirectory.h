// A directory that goes, with all that is in it, when the object does.

#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include "runtime/errnoexcept.h"

class ScratchDirectory {
 public:
  // Below the system's directory for such; what `name` begins with is the program's.
  explicit ScratchDirectory(const std::string& name)
      : _path(std::filesystem::temp_directory_path() / (name + "-XXXXXX")) {
    if (mkdtemp(_path.data()) == nullptr) throw ErrnoError("Unable to make " + _path);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
  }
  const std::string& Path() const { return _path; }

 private:
  std::string _path;
};
