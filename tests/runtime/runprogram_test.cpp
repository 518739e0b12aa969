#include "runtime/runprogram.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <sstream>

#include "runtime/errnoexcept.h"
#include "runtime/signalprocessor.h"
#include "runtime/streamfile.h"
#include "tests/support/captured_output.h"
#include "tests/support/child_process.h"
#include "tests/support/error_text.h"

namespace {

bool watched = false, forbidden = false;

}  // namespace

// What another thread had locked at a fork stays locked in the child, so a child that allocates may hang for ever.
extern "C" void* __real__Znwm(size_t size);
extern "C" void* __wrap__Znwm(size_t size) {
  if (forbidden) _exit(99);
  return __real__Znwm(size);
}

namespace {

TEST(RunProgram, AllocatesNothingInTheChild) {
  pthread_atfork(nullptr, nullptr, [] { forbidden = watched; });
  watched = true;
  EXPECT_EQ(3, RunProgram("/bin/sh -c 'exit 3' a b c d e f g h"));
  EXPECT_EQ(127, RunProgram("/no/such/program/by/a/name/that/is/long"));
  RunProgramAsDaemon("/bin/true");
  watched = false;
}

TEST(RunProgram, GivesStatusAndOutput) {
  const std::string missing = "RunProgram got exception: Unable to exec ";
  std::string lines, many;
  for (int i = 1; i <= 20000; ++i) lines += std::to_string(i) + '\n';
  for (int i = 1; i < 200; ++i) many += " x";
  const struct {
    std::string command;
    int status;
    std::string output;
  } rows[] = {{"/bin/sh -c 'echo text; exit 3'", 3, "text\n"},
              {"/bin/sh -c 'kill -9 $$'", -1, ""},
              {"/usr/bin/seq 1 20000", 0, lines},  // more than a pipe holds
              {"/bin/echo" + many, 0, many.substr(1, 2 * 126 - 1) + "\n"},
              {"true", 127, missing + "true: No such file or directory\n"},
              {"", 127, missing + ": No such file or directory\n"}};
  CapturedOutput standard;
  for (const auto& row : rows) {
    if (!kThreadSanitizer) std::cout << "unflushed";  // must not come out of the child as well
    std::string captured = "old";
    std::ostringstream copied;
    EXPECT_EQ(row.status, RunProgramCaptureStdout(row.command, captured)) << row.command;
    EXPECT_EQ(row.output, captured);
    EXPECT_EQ(row.status, RunProgram(row.command, copied)) << row.command;
    EXPECT_EQ(row.output, copied.str());
  }
}

TEST(RunProgram, ConnectsOnePipeOrNothing) {
  const StreamFile open("/dev/null", O_RDONLY);
  const std::string number = std::to_string(open.Fileno());
  EXPECT_EQ(0, RunProgram("/bin/sh -c 'cd /proc/$$/fd; ! test -e 0 && ! test -e 1 && ! test -e " + number + " '"));
  EXPECT_EQ(0, RunProgramWriteStdin("/bin/sh -c 'read a; echo ${a}d; read b; test $b = sentd'", "sent\n"));
  EXPECT_EQ(5, RunProgramWriteStdin("/bin/sh -c 'head -c 200000 >/dev/null; exit 5'", std::string(200000, 'x')));
  ExpectInChild([] {  // an owner without standard streams gets their numbers for the pipe
    const int saved = ::dup(STDOUT_FILENO);
    std::string text;
    for (const int stream : {STDOUT_FILENO, STDIN_FILENO}) {
      ::close(stream), ::close(stream + 1);
      std::cout << "unflushed";
      EXPECT_EQ(0, RunProgramCaptureStdout("/bin/echo here", text));
      EXPECT_EQ("here\n", text);
    }
    std::cout.setstate(std::ios_base::badbit);
    EXPECT_EQ(127, RunProgramCaptureStdout("/no/such", text));
    EXPECT_NE(std::string::npos, text.find("/no/such")) << "its own message needs no stream";
    ::dup2(saved, STDOUT_FILENO);
    std::cout.clear();
    const SignalsBlocked scope;  // as in a worker's thread
    EXPECT_EQ(-1, RunProgram("/bin/sh -c 'kill -TERM $$; exit 3'"));
  });
}

TEST(RunProgram, TellsWhatFailedAndGoesOnAfterASignal) {
  ExpectInChild([] {
    std::string text;
    SignalProcessor::instance().catch_signal(SIGALRM);  // breaks the calls of whoever waits
    EXPECT_EQ(4, RunProgram("/bin/sh -c 'kill -ALRM $PPID; exit 4'"));
    EXPECT_EQ(0, RunProgramCaptureStdout("/bin/sh -c 'kill -ALRM $PPID; echo all of it'", text));
    EXPECT_EQ("all of it\n", text);
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit few = {4, limit.rlim_max};
    // The sanitizer looks at an exception's type the first time, and needs descriptors for that.
    EXPECT_EQ("known: Success", ErrorText([] { throw ErrnoError("known", 0); }));
    setrlimit(RLIMIT_NOFILE, &few);
    const std::string no_pipe = ErrorText([&] { RunProgramCaptureStdout("/bin/true", text); });
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ("Unable to create pipe: Too many open files", no_pipe);
    std::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ("Error while waiting for program to finish: No child processes",
              ErrorText([] { RunProgram("/bin/true"); }));
    EXPECT_EQ("Error while waiting for process to finish: No child processes",
              ErrorText([] { RunProgramAsDaemon("/bin/true"); }));
    std::signal(SIGCHLD, SIG_DFL);
  });
}

TEST(RunProgram, TellsWhereNoProcessIsToBeHad) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const auto tasks = [] {
    return static_cast<rlim_t>(std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}));
  };
  if (tasks() > 1) GTEST_SKIP() << "an emulator's thread would count in the children as well";
  const uid_t user = 1'000'000 + static_cast<uid_t>(getpid());  // whom no other run of the tests takes
  const auto result = RunInChild([&] {
    const rlim_t own = tasks();  // a sanitizer has a thread here
    for (const rlim_t others : {1, 0}) {
      const rlimit processes = {own + others, own + others};
      setrlimit(RLIMIT_NPROC, &processes);
      EXPECT_EQ(0, setresuid(user, user, 0));
      EXPECT_EQ(others == 0 ? "Unable to fork: Resource temporarily unavailable" : "nothing thrown",
                ErrorText([] { RunProgramAsDaemon("/bin/true"); }));
      EXPECT_EQ(0, setresuid(0, 0, 0));
    }
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
  EXPECT_EQ("RunProgram: Got exception: Unable to fork: Resource temporarily unavailable\n", result.output);
}

// A shell would take the real user's rights back.
TEST(RunProgram, IsTheEffectiveUsers) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const auto result = RunInChild([] {
    EXPECT_TRUE(setegid(54'320) == 0 && seteuid(54'321) == 0);
    std::string told;
    RunProgramCaptureStdout("/bin/grep -E ^[UG]id: /proc/self/status", told);
    EXPECT_EQ("Uid:\t54321\t54321\t54321\t54321\nGid:\t54320\t54320\t54320\t54320\n", told);
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
}

TEST(RunProgram, ADaemonIsOnItsOwn) {
  const auto result = RunInChild([] {
    ::dup2(STDOUT_FILENO, STDERR_FILENO);  // the one that a daemon keeps; its end is the end of the output
    RunProgramAsDaemon("/bin/sh -c 'timeout 20 cat /proc/$$/stat /proc/$$/status >&2'");
    EXPECT_TRUE(::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD);  // no child of ours is left
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
  std::istringstream told(result.output);
  std::string word;
  pid_t session = 0;
  for (int field = 1; field < 6; ++field) told >> word;
  told >> session;
  while (told >> word && word != "SigIgn:") continue;
  told >> word;
  EXPECT_TRUE(session > 0 && session != ::getsid(0) && (std::stoull(word, nullptr, 16) & 1) != 0)
      << result.output;  // SIGHUP is bit 0
}

}  // namespace
