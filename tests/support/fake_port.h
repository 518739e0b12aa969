// What a pseudo-terminal lacks: parity, 7 bits, modem lines and counters; and calls that fail.
//
// While a FakePort lives, settings and modem lines of every descriptor are its own; reading and writing stay real. One
// at a time, one thread. The test program links with -Wl,--wrap= for ioctl, tcgetattr, tcsetattr, cfsetospeed and
// tcsendbreak.

#pragma once

#include <termios.h>

#include <string>

#include "tests/support/ioctl_hook.h"

struct FakePort {
  FakePort();
  FakePort(const FakePort&) = delete;
  FakePort& operator=(const FakePort&) = delete;
  ~FakePort();

  // The call that fails with EIO and changes nothing: a function's name, TIOCMGET or TIOCGICOUNT, or TIOCMBIS or
  // TIOCMBIC with the number of the line behind it.
  std::string failing;
  termios settings = {};
  int lines = 0;  // TIOCM_ bits

 private:
  IoctlHook _hook;
};
