#include "tests/support/fake_device.h"

#include <linux/serial.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>

namespace {

FakeDevice* current = nullptr;

int Answer(const std::string& call) {
  errno = EIO;
  return current != nullptr && current->failing == call ? -1 : 0;
}

// A successful call stores `value`.
template <class Value>
int Store(const std::string& call, void* where, const Value& value) {
  const int answer = Answer(call);
  if (answer == 0) *static_cast<Value*>(where) = value;
  return answer;
}

}  // namespace

FakeDevice::FakeDevice() {
  current = this;
}

FakeDevice::~FakeDevice() {
  current = nullptr;
}

extern "C" {
int __real_ioctl(int fd, unsigned long request, void* argument);
int __real_tcgetattr(int fd, termios* settings);
int __real_tcsetattr(int fd, int when, const termios* settings);
int __real_cfsetospeed(termios* settings, speed_t speed);
ssize_t __real_write(int fd, const void* data, size_t size);

int __wrap_ioctl(int fd, unsigned long request, void* argument) {
  const auto line = [&] { return *static_cast<const int*>(argument); };
  switch (current == nullptr ? 0 : request) {
    case TIOCMGET:
      return Store("TIOCMGET", argument, current->lines);
    case TIOCMBIS:
      return Store("TIOCMBIS" + std::to_string(line()), &current->lines, current->lines | line());
    case TIOCMBIC:
      return Store("TIOCMBIC" + std::to_string(line()), &current->lines, current->lines & ~line());
    case TIOCGICOUNT:
      return Store("TIOCGICOUNT", argument, serial_icounter_struct{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, {}});
    case RTC_SET_TIME:
      return Store("RTC_SET_TIME", &current->clock, *static_cast<const rtc_time*>(argument));
    case RTC_RD_TIME:
      return Store("RTC_RD_TIME", argument, current->clock);
    default:
      return __real_ioctl(fd, request, argument);
  }
}

int __wrap_tcgetattr(int fd, termios* settings) {
  return current == nullptr ? __real_tcgetattr(fd, settings) : Store("tcgetattr", settings, current->settings);
}

int __wrap_tcsetattr(int fd, int when, const termios* settings) {
  return current == nullptr ? __real_tcsetattr(fd, when, settings) : Store("tcsetattr", &current->settings, *settings);
}

int __wrap_cfsetospeed(termios* settings, speed_t speed) {
  return Answer("cfsetospeed") == 0 ? __real_cfsetospeed(settings, speed) : -1;
}

ssize_t __wrap_write(int fd, const void* data, size_t size) {
  const size_t most = current == nullptr ? size : current->most;
  if (most == 0) return errno = EAGAIN, -1;
  return __real_write(fd, data, std::min(size, most));
}

int __wrap_tcsendbreak(int, int) {
  return Answer("tcsendbreak");
}
}
