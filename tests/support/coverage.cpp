// For the build with gcov, which writes its counts at exit(3): a test's child that ends in another way keeps them too.
// One that SIGKILL meets from outside loses them.

#include <csignal>
#include <cstdlib>
#include <exception>

extern "C" {
void __gcov_dump();
void __gcov_reset();
[[noreturn]] void __real___assert_fail(const char* what, const char* file, unsigned int line, const char* function);
[[noreturn]] void __real__exit(int status);
int __real_execv(const char* path, char* const* arguments);
int __real_raise(int signal);

[[noreturn]] void __wrap___assert_fail(const char* what, const char* file, unsigned int line, const char* function) {
  __gcov_dump();
  __real___assert_fail(what, file, line, function);
}

[[noreturn]] void __wrap__exit(int status) {
  __gcov_dump();
  __real__exit(status);
}

int __wrap_execv(const char* path, char* const* arguments) {
  __gcov_dump();
  __gcov_reset();  // should it fail, counting goes on
  return __real_execv(path, arguments);
}

int __wrap_raise(int signal) {
  struct sigaction action = {};
  sigaction(signal, nullptr, &action);
  if (action.sa_handler == SIG_DFL) {
    __gcov_dump();
    __gcov_reset();  // should it be blocked, counting goes on
  }
  return __real_raise(signal);
}
}

namespace {

[[maybe_unused]] const auto previous = std::set_terminate([] {
  __gcov_dump();
  std::abort();
});

}  // namespace
