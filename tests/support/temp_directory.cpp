#include "tests/support/temp_directory.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "runtime/errnoexcept.h"

TempDirectory::TempDirectory() {
  std::string name = std::filesystem::temp_directory_path() / "moorlog-test-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw ErrnoError(name);
  _path = std::filesystem::canonical(name);
}

TempDirectory::~TempDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(_path, ignored);
}

void TempDirectory::Write(const std::string& name, const std::string& content) const {
  std::filesystem::create_directories((_path / name).parent_path());
  std::ofstream(_path / name, std::ios::binary) << content;
}

std::string TempDirectory::Read(const std::string& name) const {
  std::ifstream file(_path / name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::set<std::string> TempDirectory::Names() const {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(_path)) names.insert(entry.path().filename());
  return names;
}
