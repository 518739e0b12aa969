#include "tests/support/ioctl_hook.h"

#include <cstdarg>

extern "C" {
int __real_ioctl(int fd, unsigned long request, ...);

int __wrap_ioctl(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  const auto result = IoctlHook::hook ? IoctlHook::hook(fd, request, argument) : std::nullopt;
  return result ? *result : __real_ioctl(fd, request, argument);
}
}
