#include "emulators/pty.h"

#include <fcntl.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include "emulators/must.h"

namespace {

struct Speed {
  speed_t code;
  int rate;
};
constexpr Speed kSpeeds[] = {{B4800, 4800},   {B9600, 9600},   {B19200, 19200},
                             {B38400, 38400}, {B57600, 57600}, {B115200, 115200}};

}  // namespace

Pty::Pty() {
  char path[64];
  Must(openpty(&_instrument, &_device, path, nullptr, nullptr) == 0, "make a pseudo-terminal");
  _path = path;
  fcntl(_instrument, F_SETFL, O_NONBLOCK);
  termios raw;
  tcgetattr(_device, &raw);
  cfmakeraw(&raw);
  cfsetspeed(&raw, B38400);
  tcsetattr(_device, TCSANOW, &raw);
}

Pty::~Pty() {
  close(_device);
  close(_instrument);
}

int Pty::Speed() const {
  termios settings = {};
  tcgetattr(_device, &settings);
  for (const auto& speed : kSpeeds)
    if (speed.code == cfgetospeed(&settings)) return speed.rate;
  return 0;
}

void Pty::SetSpeed(int rate) {
  termios settings = {};
  tcgetattr(_device, &settings);
  for (const auto& speed : kSpeeds)
    if (speed.rate == rate) cfsetspeed(&settings, speed.code);
  tcsetattr(_device, TCSANOW, &settings);
}

std::string Pty::Read() {
  std::string bytes;
  char chunk[4096];
  for (ssize_t count; (count = read(_instrument, chunk, sizeof chunk)) > 0;) bytes.append(chunk, count);
  return bytes;
}

void Pty::Write(const std::string& bytes) {
  [[maybe_unused]] const ssize_t taken = write(_instrument, bytes.data(), bytes.size());
}

void Pty::Write(const std::string& bytes, int rate) {
  if (Speed() == rate) return Write(bytes);
  std::string noise = bytes;
  for (char& c : noise) {
    _noise = _noise * 1'664'525 + 1'013'904'223;
    c = static_cast<char>(_noise >> 24);
  }
  Write(noise);
}
