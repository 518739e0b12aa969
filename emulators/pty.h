// A serial line made of a pseudo-terminal (pty(7)): the instrument's end is this object, ours is a device file.
//
// The line stays up whether or not anybody has the device file open, and starts raw, at 38400 bps. A pseudo-terminal
// has no parity, no 7 bits and no modem lines, and its speed is a number only: an instrument that cares compares it
// with its own.

#pragma once

#include <cstdint>
#include <string>

class Pty {
 public:
  Pty();  // throws ErrnoError
  Pty(const Pty&) = delete;
  Pty& operator=(const Pty&) = delete;
  ~Pty();

  // The instrument's end: non-blocking, for the poll loop.
  int Fileno() const { return _instrument; }
  const std::string& Path() const { return _path; }

  // What our side has set, in bits per second; 0 for a speed that no instrument has.
  int Speed() const;
  // As if somebody else on our side had set it. Only for speeds that Speed knows.
  void SetSpeed(int rate);

  // All that has arrived from our side since the last call, maybe nothing.
  std::string Read();
  // Bytes that find no room are lost, as on a line that nobody reads.
  void Write(const std::string& bytes);
  // From an instrument that sends at `rate`, in bits per second: at any other speed of ours they arrive as noise.
  void Write(const std::string& bytes, int rate);

 private:
  int _instrument = -1;
  int _device = -1;  // keeps the line up
  std::string _path;
  uint32_t _noise = 1;
};
