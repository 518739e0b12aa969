// Reclaimer over a directory of 100,000 files, beside the shell's way to the same list: find -printf and sort. Nothing
// is deleted, so every round sees the same files.
//
// "bytes/file" is what a request holds at its peak on the heap, with malloc's own share, for each file.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <new>

#include "bench/turns.h"
#include "emulators/temp_directory.h"
#include "logging/reclaimer.h"

namespace {

constexpr int kFiles = 100'000;
std::atomic<bool> counting;  // in a round of its own: it takes time
std::atomic<int64_t> live_bytes, peak_bytes;

int64_t ChunkSize(void* block) {
  return static_cast<int64_t>(malloc_usable_size(block) + sizeof(size_t));
}

}  // namespace

void* operator new(size_t size) {
  void* block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  if (counting.load(std::memory_order_relaxed)) {
    const int64_t live = live_bytes += ChunkSize(block);
    if (live > peak_bytes) peak_bytes = live;  // one thread allocates while another one waits for it
  }
  return block;
}
// Not inlined: the compiler would take the free(3) in it for a mistake.
[[gnu::noinline]] void operator delete(void* block) noexcept {
  if (counting.load(std::memory_order_relaxed) && block != nullptr) live_bytes -= ChunkSize(block);
  std::free(block);
}
void operator delete(void* block, size_t) noexcept {
  operator delete(block);
}

namespace {

// Names as the logger gives them, one a minute, and their times in another order than the directory's.
void FillDirectory(const std::string& path) {
  for (int i = 0; i < kFiles; ++i) {
    char name[64];
    std::snprintf(name, sizeof name, "/station-2024-%02d-%02dT%02d%02d00.zip", 1 + i / 44'640, 1 + i / 1'440 % 31,
                  i / 60 % 24, i % 60);
    const auto age = static_cast<time_t>(1'704'067'200 + 60 * (i * int64_t{7'919} % kFiles));
    const timespec times[] = {{age, 0}, {age, 0}};
    mknod((path + name).c_str(), S_IFREG | 0600, 0);
    utimensat(AT_FDCWD, (path + name).c_str(), times, 0);
  }
}

void Directory(benchmark::State& state) {
  const TempDirectory directory{TempDirectory::Memory()};
  FillDirectory(directory.Path());
  const std::string find = "find " + directory.Path() + " -printf '%T@ %s %p\\n' | sort -n >/dev/null";
  const auto own = [&] {
    Reclaimer reclaimer(false);
    reclaimer.Reclaim(directory.Path(), std::numeric_limits<int>::max());
  };
  Turns turns({{"", own}, {"find|sort", [&] {
                             if (std::system(find.c_str()) != 0) std::abort();
                           }}});
  turns.Measure(state);
  counting = true;
  own();
  counting = false;
  state.counters["bytes/file"] = static_cast<double>(peak_bytes) / kFiles;
}
BENCHMARK(Directory)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
