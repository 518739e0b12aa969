// Catches what the process writes to standard output while the object lives, by streams or straight to the
// descriptor, its children included; or to standard error.

#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

class CapturedOutput {
 public:
  // `fd`: STDOUT_FILENO or STDERR_FILENO.
  explicit CapturedOutput(int fd = STDOUT_FILENO) : _fd(fd) {
    _Flush();
    dup2(_file, fd);
  }
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;
  ~CapturedOutput() {
    _Flush();
    dup2(_saved, _fd);
    close(_saved);
    close(_file);
  }

  // All that was written so far.
  std::string Text() const {
    _Flush();
    std::string text(static_cast<size_t>(lseek(_file, 0, SEEK_END)), ' ');
    text.resize(static_cast<size_t>(pread(_file, text.data(), text.size(), 0)));
    return text;
  }

 private:
  static void _Flush() {
    std::cout.flush();
    std::fflush(nullptr);
  }

  const int _fd;
  const int _file = memfd_create("captured", MFD_CLOEXEC);
  const int _saved = fcntl(_fd, F_DUPFD_CLOEXEC, 3);
};
