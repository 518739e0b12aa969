#include "runtime/runprogram.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <vector>

#include "runtime/errnoexcept.h"
#include "runtime/str_util.h"
#include "runtime/streamfilebase.h"

namespace {

constexpr size_t kMaxArguments = 127;
constexpr int kNotExecuted = 127;  // the exit status that sh(1) gives for the same

// Closed at both ends whatever happens.
struct Pipe {
  Pipe() {
    std::array<int, 2> ends;
    if (::pipe(ends.data()) != 0) throw ErrnoError("Unable to create pipe");
    reader._set_fileno(ends[0]);
    writer._set_fileno(ends[1]);
    // An owner without standard streams may have got their numbers, and what it prints would go into the pipe.
    for (StreamFileBase* end : {&reader, &writer}) {
      if (end->Fileno() > STDERR_FILENO) continue;
      const int moved = ::fcntl(end->Fileno(), F_DUPFD, STDERR_FILENO + 1);
      if (moved < 0) throw ErrnoError("Unable to create pipe");
      end->_set_fileno(moved);
    }
  }

  StreamFileBase reader;
  StreamFileBase writer;
};

// Whatever standard output still holds would be printed by both processes.
pid_t Fork() {
  std::cout.flush();
  std::fflush(stdout);
  const pid_t pid = ::fork();
  if (pid < 0) throw ErrnoError("Unable to fork");
  return pid;
}

// The child's side of a fork. It ends here: nothing returns to the caller's code, exceptions neither. `who` begins the
// message about those.
template <class Work>
[[noreturn]] void RunChild(const char* who, Work work) noexcept {
  try {
    work();
    ::_exit(0);
  } catch (const std::exception& error) {
    std::cout << who << " exception: " << error.what() << std::endl;
  } catch (...) {
    std::cout << who << " unknown exception" << std::endl;
  }
  std::fflush(stdout);  // _exit doesn't
  ::_exit(kNotExecuted);
}

// Makes the pipe's ends, all of whose numbers are above those of the standard streams, this process's standard input
// and output; without a pipe it has neither.
void ConnectStandardStreams(const int* descriptors) {
  for (const int end : {STDOUT_FILENO, STDIN_FILENO}) {
    ::close(end);
    if (descriptors == nullptr) continue;
    ::dup2(descriptors[end], end);  // the reading end has the index 0, the writing one 1
    ::close(descriptors[end]);
  }
}

// Returns only by an exception. An empty command is the empty path.
void Execute(const std::string& command) {
  std::vector<std::string> words;
  SplitCmdLine(command, words);
  if (words.empty()) words.emplace_back();
  std::array<char*, kMaxArguments + 1> arguments{};
  const size_t count = std::min(words.size(), kMaxArguments);
  for (size_t i = 0; i < count; ++i) arguments[i] = words[i].data();
  // A zip that outlives a link would keep its connection open, and a removable disk busy. A failure costs only that.
  ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  ::execv(arguments[0], arguments.data());
  const int error = errno;
  throw ErrnoError("Unable to exec " + words[0], error);
}

// Starts the command; `descriptors` is null or the reading and the writing end of a pipe.
pid_t _start_program(const std::string& command, const int* descriptors) {
  const pid_t pid = Fork();
  if (pid == 0)
    RunChild("RunProgram got", [&] {
      ConnectStandardStreams(descriptors);
      Execute(command);
    });
  return pid;
}

int WaitFor(pid_t pid, const char* failure) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0)
    if (errno != EINTR) throw ErrnoError(failure);
  return status;
}

int _wait_for_complete(pid_t pid) {
  const int status = WaitFor(pid, "Error while waiting for program to finish");
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

int RunProgram(const std::string& command) {
  return _wait_for_complete(_start_program(command, nullptr));
}

int RunProgram(const std::string& command, std::ostream& out) {
  // Collected first: the program has to be waited for, whatever the stream does.
  std::string text;
  const int status = RunProgramCaptureStdout(command, text);
  out.write(text.data(), static_cast<std::streamsize>(text.size())).flush();
  return status;
}

int RunProgramCaptureStdout(const std::string& command, std::string& out) {
  out.clear();
  Pipe pipe;
  const int ends[] = {pipe.reader.Fileno(), pipe.writer.Fileno()};
  const pid_t pid = _start_program(command, ends);
  pipe.writer._close();
  std::array<char, 8192> chunk;
  for (;;) {
    const ssize_t count = ::read(pipe.reader.Fileno(), chunk.data(), chunk.size());
    // A signal must not cut the output short: the program could wait for ever in a full pipe that it holds itself.
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    out.append(chunk.data(), count);
  }
  pipe.reader._close();
  return _wait_for_complete(pid);
}

int RunProgramWriteStdin(const std::string& command, const std::string& data) {
  Pipe pipe;
  const int ends[] = {pipe.reader.Fileno(), pipe.writer.Fileno()};
  const pid_t pid = _start_program(command, ends);
  pipe.reader._close();
  [[maybe_unused]] const ssize_t written = ::write(pipe.writer.Fileno(), data.data(), data.size());
  ::fsync(pipe.writer.Fileno());
  pipe.writer._close();
  return _wait_for_complete(pid);
}

void RunProgramAsDaemon(const std::string& command) {
  const pid_t pid = Fork();
  if (pid == 0)
    RunChild("RunProgram: Got", [&] {
      ::setsid();
      if (std::signal(SIGHUP, SIG_IGN) == SIG_ERR) throw std::runtime_error("Unable to ignore SIGHUP");
      _start_program(command, nullptr);
    });
  WaitFor(pid, "Error while waiting for process to finish");
}
