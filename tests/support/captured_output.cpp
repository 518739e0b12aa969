#include "tests/support/captured_output.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

namespace {

void FlushAll() {
  std::cout.flush();
  std::fflush(nullptr);
}

}  // namespace

CapturedOutput::CapturedOutput(int fd) : _fd(fd) {
  FlushAll();
  _file = memfd_create("captured", MFD_CLOEXEC);
  _saved = fcntl(fd, F_DUPFD_CLOEXEC, 3);
  dup2(_file, fd);
}

CapturedOutput::~CapturedOutput() {
  FlushAll();
  dup2(_saved, _fd);
  close(_saved);
  close(_file);
}

std::string CapturedOutput::Text() const {
  FlushAll();
  std::string text;
  char chunk[4096];
  for (ssize_t got; (got = pread(_file, chunk, sizeof chunk, static_cast<off_t>(text.size()))) > 0;)
    text.append(chunk, got);
  return text;
}
