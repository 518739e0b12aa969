#include "logging/reclaimer.h"

#include <map>
#include <stdexcept>
#include <utility>

#include "logging/worker.h"
#include "runtime/filesystem.h"

namespace {

// Path and size in bytes, by the time of the last change in seconds.
using Files = std::multimap<long, std::pair<std::string, int64_t>>;

// Sparse files can claim absurd sizes: sums and products wrap around then, as the machine does it, where plain signed
// arithmetic would be undefined.
int64_t Sum(int64_t first, int64_t second) {
  __builtin_add_overflow(first, second, &first);
  return first;
}

int64_t Product(int64_t first, int64_t second) {
  __builtin_mul_overflow(first, second, &first);
  return first;
}

// Regular files, 0x8000, and symbolic links, 0xA000.
bool IsCounted(uint32_t mode) {
  return (mode & 0xD000) == 0x8000;
}

int64_t DiskSize(const std::string& path) {
  const auto size = static_cast<int64_t>(PartitionSizeAndAvailableSpace(path).partition_size);
  // The file systems that the kernel makes up, such as /proc, have none.
  if (size <= 0) throw std::runtime_error("The partition has no size");
  return size;
}

Files Collect(const std::string& path, int64_t& total_size, const std::atomic<bool>& abandoned) {
  Files files;
  for (DirectoryIterator entry(path), end; entry != end && !abandoned; ++entry) {
    const FileInformationRecord info = FileInformation(*entry);
    if (!IsCounted(info.mode)) continue;
    const auto size = static_cast<int64_t>(info.size);
    files.emplace(info.mod_time, std::pair(*entry, size));
    total_size = Sum(total_size, size);
  }
  return files;
}

void PrintSums(const Files& files, int64_t total_size, int64_t disk_size, int32_t disk_percent) {
  for (const auto& [time, file] : files)
    PrintLine(std::to_string(time) + ' ' + file.first + ' ' + std::to_string(file.second));
  PrintLine("total_size=" + std::to_string(total_size));
  PrintLine(" disk_size=" + std::to_string(disk_size));
  PrintLine("   percent=" + std::to_string(disk_percent));
}

// Deliberately in this form: a path that is one byte shorter than the ending counts as ending in it.
bool EndsIn(const std::string& path, const std::string& ending) {
  return path.rfind(ending) == path.length() - ending.length();
}

// Stops behind the file of which `is_enough`, asked for its size, says so; one is deleted at least.
template <class IsEnough>
void DeleteOldest(const Files& files, const std::string& except, bool verbose, const std::atomic<bool>& abandoned,
                  IsEnough is_enough) {
  for (const auto& [time, file] : files) {
    if (abandoned) return;
    const auto& [path, size] = file;
    if (!except.empty() && EndsIn(path, except)) continue;
    if (verbose) PrintLine("DELETE " + path);
    DeleteFile(path);
    if (is_enough(size)) return;
  }
}

void Serve(const Reclaimer::q_item& request, bool verbose, const std::atomic<bool>& abandoned) {
  if (abandoned || !IsDirectory(request.path)) return;
  const int64_t disk_size = DiskSize(request.path);
  int64_t total_size = 0;
  const Files files = Collect(request.path, total_size, abandoned);
  if (request.relieves) {
    size_t left = files.size() / 100;
    return DeleteOldest(files, request.except, verbose, abandoned, [&left](int64_t) { return left-- == 0; });
  }
  const auto disk_percent = static_cast<int32_t>(Product(total_size, 100) / disk_size);
  if (verbose) PrintSums(files, total_size, disk_size, disk_percent);
  if (disk_percent <= request.percent) return;

  const int64_t reclaim_percent = int64_t{disk_percent} - request.percent;
  // Divided first, deliberately, so this is not the exact share.
  const int64_t reclaim_bytes = Product(disk_size / 100, reclaim_percent);
  if (verbose) {
    PrintLine("reclaim_percent=" + std::to_string(reclaim_percent));
    PrintLine("  reclaim_bytes=" + std::to_string(reclaim_bytes));
  }
  DeleteOldest(files, request.except, verbose, abandoned, [left = reclaim_bytes](int64_t size) mutable {
    const bool is_enough = size >= left;
    left -= size;
    return is_enough;
  });
}

}  // namespace

// The thread reads the members: it starts when all of them stand.
Reclaimer::Reclaimer(bool verbose) : _verbose(verbose) {
  _thread = StartWorker(_reclaim, this);
}

Reclaimer::~Reclaimer() {
  StopWorkerAtEnd(_queue, _thread);
}

void Reclaimer::Reclaim(const std::string& path, int percent) {
  Reclaim(path, percent, "");
}

void Reclaimer::Reclaim(const std::string& path, int percent, const std::string& except) {
  _queue.push({path, except, percent});
}

void Reclaimer::Quit() {
  StopWorker(_queue, _thread);
}

void Reclaimer::_reclaim(Reclaimer* reclaimer) {
  ServeQueue(reclaimer->_queue, [reclaimer](const q_item& request) {
    try {
      Serve(request, reclaimer->_verbose, reclaimer->_abandoned);
    } catch (const std::exception& error) {
      PrintLine("ERROR: Unable to reclaim files from " + request.path + ": " + error.what());
    }
  });
}
