// Catches what the process writes to standard output while the object lives, by streams or straight to the
// descriptor, its children included; or to standard error.

#pragma once

#include <string>

class CapturedOutput {
 public:
  // `fd`: STDOUT_FILENO or STDERR_FILENO.
  explicit CapturedOutput(int fd = 1);
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;
  ~CapturedOutput();

  // All that was written so far.
  std::string Text() const;

 private:
  int _fd;
  int _file;
  int _saved;
};
