// A directory of the test's own, removed with all that is in it.

#pragma once

#include <filesystem>
#include <set>
#include <string>

class TempDirectory {
 public:
  TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;
  ~TempDirectory();

  // Absolute, without a slash at the end.
  std::string Path() const { return _path.string(); }
  std::string operator/(const std::string& name) const { return (_path / name).string(); }

  // Replaces the file; directories on the way to it are made.
  void Write(const std::string& name, const std::string& content) const;
  // Empty when there is no such file.
  std::string Read(const std::string& name) const;
  // Of all entries, bare.
  std::set<std::string> Names() const;

 private:
  std::filesystem::path _path;
};
