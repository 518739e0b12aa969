#include "runtime/runprogram.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <ostream>
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

// A command as execv(2) takes it. Made before the fork: the child can't, see below.
class Command {
 public:
  explicit Command(const std::string& line) {
    SplitCmdLine(line, _words);
    if (_words.empty()) _words.emplace_back();  // the empty path
    for (size_t i = 0; i < std::min(_words.size(), kMaxArguments); ++i) _arguments[i] = _words[i].data();
  }
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  const char* Path() const { return _arguments[0]; }
  char* const* Arguments() const { return _arguments.data(); }

 private:
  std::vector<std::string> _words;
  std::array<char*, kMaxArguments + 1> _arguments{};
};

pid_t Fork() {
  const pid_t pid = ::fork();
  if (pid < 0) throw ErrnoError("Unable to fork");
  return pid;
}

// --- the child ---
//
// Only one thread comes through a fork, and whatever the others had locked stays locked for ever: memory, streams,
// exceptions. So a child makes system calls alone (signal-safety(7)).

// Ends the child, with a message on its standard output.
template <class... Text>
[[noreturn]] void Fail(const Text*... text) {
  const iovec pieces[] = {{const_cast<char*>(text), std::strlen(text)}...};
  [[maybe_unused]] const ssize_t written = ::writev(STDOUT_FILENO, pieces, sizeof...(text));
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

// The effective user's in every respect: a shell would take the rights of the real one back, where the two differ.
void BecomeEffectiveUser() {
  const gid_t group = ::getegid();
  const uid_t user = ::geteuid();
  if (::setresgid(group, group, group) != 0 || ::setresuid(user, user, user) != 0)
    Fail("RunProgram got exception: Unable to give up rights: ", ::strerrordesc_np(errno), "\n");
}

[[noreturn]] void Execute(const Command& command, const int* descriptors) {
  ConnectStandardStreams(descriptors);
  BecomeEffectiveUser();
  // A zip that outlives a link would keep its connection open, and a removable disk busy. A failure costs only that.
  ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  // What a worker's thread starts would never hear a signal: the mask outlives execv.
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::execv(command.Path(), command.Arguments());
  Fail("RunProgram got exception: Unable to exec ", command.Path(), ": ", ::strerrordesc_np(errno), "\n");
}

// --- the parent ---

// `descriptors` is null or the reading and the writing end of a pipe.
pid_t _start_program(const Command& command, const int* descriptors) {
  const pid_t pid = Fork();
  if (pid == 0) Execute(command, descriptors);
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
  return _wait_for_complete(_start_program(Command(command), nullptr));
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
  const Command program(command);
  Pipe pipe;
  const int ends[] = {pipe.reader.Fileno(), pipe.writer.Fileno()};
  const pid_t pid = _start_program(program, ends);
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
  const Command program(command);
  Pipe pipe;
  const int ends[] = {pipe.reader.Fileno(), pipe.writer.Fileno()};
  const pid_t pid = _start_program(program, ends);
  pipe.reader._close();
  [[maybe_unused]] const ssize_t written = ::write(pipe.writer.Fileno(), data.data(), data.size());
  ::fsync(pipe.writer.Fileno());
  pipe.writer._close();
  return _wait_for_complete(pid);
}

void RunProgramAsDaemon(const std::string& command) {
  const Command program(command);
  const pid_t pid = Fork();
  if (pid == 0) {
    ::setsid();
    if (std::signal(SIGHUP, SIG_IGN) == SIG_ERR) Fail("RunProgram: Got exception: Unable to ignore SIGHUP\n");
    const pid_t daemon = ::_Fork();  // as fork, and nothing but the system call
    if (daemon == 0) Execute(program, nullptr);
    if (daemon < 0) Fail("RunProgram: Got exception: Unable to fork: ", ::strerrordesc_np(errno), "\n");
    ::_exit(0);
  }
  WaitFor(pid, "Error while waiting for process to finish");
}
