// What a pseudo-terminal lacks: parity, 7 bits, modem lines and counters; a hardware clock; and calls that fail.
//
// While a FakeDevice lives, settings, modem lines and hardware clock of every descriptor are its own; reading stays
// real, and so does writing but for its size. One at a time, one thread. The test program links with -Wl,--wrap= for
// ioctl, tcgetattr, tcsetattr, cfsetospeed, tcsendbreak and write.

#pragma once

#include <linux/rtc.h>
#include <termios.h>

#include <cstdint>
#include <string>

struct FakeDevice {
  FakeDevice();
  ~FakeDevice();

  // The call that fails with EIO and changes nothing: a function's name, or that of a request of ioctl(2), for TIOCMBIS
  // and TIOCMBIC with the number of the line behind it.
  std::string failing;
  termios settings = {};
  int lines = 0;  // TIOCM_ bits
  rtc_time clock = {};
  size_t most = SIZE_MAX;  // bytes that a write takes; with 0 it fails with EAGAIN
};
