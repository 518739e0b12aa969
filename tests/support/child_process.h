// Runs part of a test in a child of its own: for what ends in a signal or an _exit, and for what would change the
// process for the tests after it.

#pragma once

#include <functional>
#include <string>

struct ChildResult {
  int exit_status = -1;  // -1 when a signal ended it
  int signal = 0;        // 0 when none did
  std::string output;    // what it wrote to standard output
};

// Forks and runs `body`. The child ends with 0 when the body returns, with 99 when an expectation in it has failed, as
// told in `output`, and with SIGABRT when an exception leaves it. It dies with the test.
ChildResult RunInChild(const std::function<void()>& body);

// For a body of expectations: they are the test's, which fails with what the child has told.
void ExpectInChild(const std::function<void()>& body);

// From now on children whose parents have ended are this process's own, to wait for. False where that can't be had, as
// under some emulations of a board.
bool AdoptOrphans();

// Its _exit flushes all streams.
#ifdef __SANITIZE_THREAD__
constexpr bool kThreadSanitizer = true;
#else
constexpr bool kThreadSanitizer = false;
#endif
