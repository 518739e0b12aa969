#include "tests/support/child_process.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <iostream>

namespace {

// An exception of the body ends the child by a signal.
[[noreturn]] void RunChild(const std::function<void()>& body, int out) noexcept {
  const bool failed = testing::Test::HasFailure();  // the test, before this child
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const rlimit no_core = {};
  setrlimit(RLIMIT_CORE, &no_core);
  dup2(out, STDOUT_FILENO);
  close(out);
  body();
  std::cout.flush();
  std::fflush(stdout);
  _exit(testing::Test::HasFailure() && !failed ? 99 : 0);
}

}  // namespace

ChildResult RunInChild(const std::function<void()>& body) {
  int ends[2];
  if (pipe(ends) != 0) return {};
  std::cout.flush();
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    RunChild(body, ends[1]);
  }
  close(ends[1]);
  ChildResult result;
  char chunk[4096];
  for (ssize_t got; (got = read(ends[0], chunk, sizeof chunk)) > 0;) result.output.append(chunk, got);
  close(ends[0]);
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return result;
  if (WIFEXITED(status)) result.exit_status = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  return result;
}

void ExpectInChild(const std::function<void()>& body) {
  const ChildResult result = RunInChild(body);
  EXPECT_EQ(result.exit_status, 0) << result.output;
}

bool AdoptOrphans() {
  return prctl(PR_SET_CHILD_SUBREAPER, 1) == 0;
}
