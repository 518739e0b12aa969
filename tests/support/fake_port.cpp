#include "tests/support/fake_port.h"

#include <linux/serial.h>
#include <sys/ioctl.h>

#include <cerrno>

extern "C" {
int __real_tcgetattr(int fd, termios* settings);
int __real_tcsetattr(int fd, int when, const termios* settings);
int __real_cfsetospeed(termios* settings, speed_t speed);
int __real_tcsendbreak(int fd, int duration);
}

namespace {

FakePort* current = nullptr;

bool Fails(const std::string& call) {
  if (current == nullptr || current->failing != call) return false;
  errno = EIO;
  return true;
}

std::optional<int> ModemCall(unsigned long request, void* argument) {
  int& bits = *static_cast<int*>(argument);
  switch (request) {
    case TIOCMGET:
      return Fails("TIOCMGET") ? -1 : (bits = current->lines, 0);
    case TIOCMBIS:
      return Fails("TIOCMBIS" + std::to_string(bits)) ? -1 : (current->lines |= bits, 0);
    case TIOCMBIC:
      return Fails("TIOCMBIC" + std::to_string(bits)) ? -1 : (current->lines &= ~bits, 0);
    case TIOCGICOUNT:
      if (Fails("TIOCGICOUNT")) return -1;
      *static_cast<serial_icounter_struct*>(argument) = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, {}};
      return 0;
    default:
      return std::nullopt;
  }
}

}  // namespace

FakePort::FakePort() : _hook([](int, unsigned long request, void* argument) { return ModemCall(request, argument); }) {
  current = this;
}

FakePort::~FakePort() {
  current = nullptr;
}

extern "C" {
int __wrap_tcgetattr(int fd, termios* settings) {
  if (current == nullptr) return __real_tcgetattr(fd, settings);
  return Fails("tcgetattr") ? -1 : (*settings = current->settings, 0);
}
int __wrap_tcsetattr(int fd, int when, const termios* settings) {
  if (current == nullptr) return __real_tcsetattr(fd, when, settings);
  return Fails("tcsetattr") ? -1 : (current->settings = *settings, 0);
}
int __wrap_cfsetospeed(termios* settings, speed_t speed) {
  return Fails("cfsetospeed") ? -1 : __real_cfsetospeed(settings, speed);
}

int __wrap_tcsendbreak(int fd, int duration) {
  return Fails("tcsendbreak") ? -1 : __real_tcsendbreak(fd, duration);
}
}
