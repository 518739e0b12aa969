// Answers ioctl(2) for a test: while an IoctlHook lives, its function is asked first. What it doesn't answer goes to
// the system, and so does everything without a hook. One hook at a time, one thread.
//
// The test program links with -Wl,--wrap=ioctl.

#pragma once

#include <functional>
#include <optional>
#include <utility>

class IoctlHook {
 public:
  // The result of the call, with errno set for -1; nothing to let it pass.
  using Answer = std::function<std::optional<int>(int fd, unsigned long request, void* argument)>;

  explicit IoctlHook(Answer answer) { hook = std::move(answer); }
  IoctlHook(const IoctlHook&) = delete;
  IoctlHook& operator=(const IoctlHook&) = delete;
  ~IoctlHook() { hook = nullptr; }

  static inline Answer hook;  // the present one
};
