// The entry tool as a whole process beside a C++ program that does nothing but print the same bytes: time from start to
// end, peak memory, and the shared libraries that each loads.
//
//   bench_entrytool TOOL PEER [benchmark options]

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "bench/turns.h"

extern char** environ;

namespace {

// Runs a program to its end with its output thrown away, and returns its peak memory in KiB.
long Run(const std::string& path) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  char* const arguments[] = {const_cast<char*>(path.c_str()), nullptr};
  pid_t child = -1;
  if (posix_spawn(&child, path.c_str(), &actions, nullptr, arguments, environ) != 0) std::abort();
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  rusage usage{};
  if (wait4(child, &status, 0, &usage) != child || status != 0) std::abort();
  return usage.ru_maxrss;
}

int Libraries(const std::string& path) {
  FILE* const lines = popen(("ldd " + path).c_str(), "r");
  int count = 0;
  for (int c = std::fgetc(lines); c != EOF; c = std::fgetc(lines)) count += c == '\n' ? 1 : 0;
  pclose(lines);
  return count;
}

void EntryTool(benchmark::State& state, const std::string& tool, const std::string& peer) {
  Turns turns({{"tool", [&] { Run(tool); }}, {"peer", [&] { Run(peer); }}});
  turns.Measure(state);
  state.counters["KiB"] = static_cast<double>(Run(tool));
  state.counters["peer KiB"] = static_cast<double>(Run(peer));
  state.counters["libraries"] = Libraries(tool);
  state.counters["peer libraries"] = Libraries(peer);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "bench_entrytool TOOL PEER [benchmark options]\n";
    return 2;
  }
  const std::string tool = argv[1], peer = argv[2];
  benchmark::RegisterBenchmark("EntryTool", [&](benchmark::State& state) { EntryTool(state, tool, peer); })
      ->UseManualTime()
      ->Unit(benchmark::kMicrosecond);
  argv[2] = argv[0];
  argc -= 2;
  benchmark::Initialize(&argc, argv + 2);
  benchmark::RunSpecifiedBenchmarks();
}
