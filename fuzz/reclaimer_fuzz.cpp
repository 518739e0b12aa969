// A directory's share of its disk, against a second form: what is left of files of any age and size, and each line that
// is told about it.
//
// The first four bytes are the request; then two for each file. The disk is as large as this file says.

#include "logging/reclaimer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <vector>

#include "emulators/temp_directory.h"

namespace fs = std::filesystem;

namespace {

constexpr int64_t kDisk = 1 << 20;  // bytes

}  // namespace

extern "C" int __real_statvfs64(const char* path, struct statvfs* info);
extern "C" int __wrap_statvfs64(const char* path, struct statvfs* info) {
  const int result = __real_statvfs64(path, info);
  info->f_frsize = info->f_blocks == 0 ? 0 : 1;
  info->f_blocks = kDisk;
  return result;
}

namespace {

struct File {
  std::string path;
  long age;
  int64_t size;
};

// What is left of files in the directory's order, and in `told` what is said. Sizes beyond all sense wrap around.
std::set<std::string> Left(std::vector<File> files, int32_t percent, const std::string& except, std::string& told) {
  std::set<std::string> left;
  uint64_t total = 0;
  for (const auto& file : files) {
    left.insert(file.path);
    total += static_cast<uint64_t>(file.size);
  }
  std::stable_sort(files.begin(), files.end(), [](const File& a, const File& b) { return a.age < b.age; });
  const auto taken = static_cast<int32_t>(static_cast<int64_t>(total * 100) / kDisk);
  std::ostringstream lines;
  for (const auto& file : files) lines << file.age << ' ' << file.path << ' ' << file.size << '\n';
  lines << "total_size=" << static_cast<int64_t>(total) << "\n disk_size=" << kDisk << "\n   percent=" << taken << '\n';
  int64_t bytes = kDisk / 100 * (int64_t{taken} - percent);
  if (taken > percent) {
    lines << "reclaim_percent=" << int64_t{taken} - percent << "\n  reclaim_bytes=" << bytes << '\n';
    for (const auto& file : files) {
      // A path one byte shorter than the ending counts as ending in it.
      if (!except.empty() && (file.path.ends_with(except) || file.path.size() + 1 == except.size())) continue;
      lines << "DELETE " << file.path << '\n';
      left.erase(file.path);
      if (file.size >= bytes) break;
      bytes -= file.size;
    }
  }
  told = lines.str();
  return left;
}

// A file of that age, in Unix time, whose bytes take no room; or a link without a target, as long as they say.
void Make(const std::string& path, time_t age, int64_t size, bool link) {
  const timespec times[] = {{age, 0}, {age, 0}};
  bool made = false;
  if (link) {
    made = symlink(std::string(1'000, 'x').c_str(), path.c_str()) == 0;
  } else {
    std::ofstream(path).flush();
    made = truncate(path.c_str(), size) == 0;  // not where the file system has no such sizes
  }
  if (made && utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) std::abort();
}

std::vector<File> FilesIn(const TempDirectory& place) {
  std::vector<File> files;
  for (const auto& entry : fs::directory_iterator(place.Path())) {
    struct stat info {};
    lstat(entry.path().c_str(), &info);
    if (!S_ISDIR(info.st_mode)) files.push_back({entry.path(), info.st_mtime, info.st_size});
  }
  return files;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  static const TempDirectory place("/dev/shm");  // which takes files of any size
  for (const auto& entry : fs::directory_iterator(place.Path())) fs::remove_all(entry.path());
  place.Write("directory/file", std::string(100, 'x'));
  constexpr int64_t kUnits[] = {1'000, 10'485, 10'486, 30'000, int64_t{1} << 33, int64_t{1} << 61};
  constexpr int kPercents[] = {0, 1, 2, 5, 10, 15, 1'000, -3};
  constexpr time_t kAges[] = {-4, 1, 1, 2, 30, 1'714'566'600};
  const int64_t unit = kUnits[data[0] % std::size(kUnits)];
  const int percent = kPercents[data[1] % std::size(kPercents)];
  const bool verbose = data[2] % 2 == 0;
  for (size_t i = 4; i + 1 < std::min<size_t>(size, 20); i += 2) {
    const std::string name = std::to_string(data[i] % 32) + (data[i] >= 192 ? ".part" : "");
    const int how = data[i + 1];
    if (!fs::is_symlink(place / name) && !fs::exists(place / name))
      Make(place / name, kAges[how % std::size(kAges)], how / 6 % 4 * unit, how / 24 % 6 == 0);
  }
  const std::vector<File> files = FilesIn(place);
  const std::string endings[] = {"", ".part", "/", std::string(files.empty() ? 0 : files[0].path.size() + 1, '/')};
  const std::string& except = endings[data[3] % std::size(endings)];
  std::string told;
  const std::set<std::string> left = Left(files, percent, except, told);

  std::ostringstream output;
  std::streambuf* const before = std::cout.rdbuf(output.rdbuf());
  {
    Reclaimer reclaimer(verbose);
    if (except.empty())
      reclaimer.Reclaim(place.Path(), percent);
    else
      reclaimer.Reclaim(place.Path(), percent, except);
    reclaimer.Reclaim(place / "directory/file", 0);
  }
  std::cout.rdbuf(before);
  std::set<std::string> found;
  for (const File& file : FilesIn(place)) found.insert(file.path);
  if (found == left && output.str() == (verbose ? told : "") && place.Read("directory/file").size() == 100) return 0;
  std::fprintf(stderr, "told:\n%s\nnot:\n%s\n", output.str().c_str(), told.c_str());
  std::abort();
}
