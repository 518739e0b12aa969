// The two base errors of everything that touches the operating system.
//
// Class and text carry all meaning; neither keeps the error number.

#pragma once

#include <cerrno>
#include <stdexcept>
#include <string>

// A failed system call: a fixed text, ": " and the system's words for the error number (strerror(3)).
class ErrnoError : public std::runtime_error {
 public:
  // Reads errno. A text that is composed for the call may itself disturb errno: use ThrowErrno then.
  explicit ErrnoError(const std::string& text);
  ErrnoError(const std::string& text, int error);
};

// Throws ErrnoError with the texts joined. Reads errno before they are composed, which may disturb it.
template <class... Text>
[[noreturn]] void ThrowErrno(const Text&... text) {
  const int error = errno;
  throw ErrnoError((std::string() + ... + text), error);
}

// An error of a descriptor or socket that has no system error behind it.
class StreamFileBaseError : public std::runtime_error {
 public:
  explicit StreamFileBaseError(const std::string& text);
};
