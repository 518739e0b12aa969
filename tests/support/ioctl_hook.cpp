#include "tests/support/ioctl_hook.h"

#include <cstdarg>
#include <utility>

extern "C" {
int __real_ioctl(int fd, unsigned long request, ...);
int __wrap_ioctl(int fd, unsigned long request, ...);
}

namespace {

IoctlHook::Answer hook;

}  // namespace

IoctlHook::IoctlHook(Answer answer) {
  hook = std::move(answer);
}

IoctlHook::~IoctlHook() {
  hook = nullptr;
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (hook)
    if (const auto result = hook(fd, request, argument)) return *result;
  return __real_ioctl(fd, request, argument);
}
