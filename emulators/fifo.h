// A character device that only tells, made of a FIFO (fifo(7)) in a directory of its own: the instrument's end is this
// object, ours is a device file. Both go with the object.

#pragma once

#include <string>

#include "emulators/temp_directory.h"

class Fifo {
 public:
  Fifo();  // throws ErrnoError
  Fifo(const Fifo&) = delete;
  Fifo& operator=(const Fifo&) = delete;
  ~Fifo();

  const std::string& Path() const { return _path; }
  // Bytes that find no room are lost.
  void Write(const std::string& bytes);

 private:
  const TempDirectory _directory;
  const std::string _path = _directory / "device";
  int _instrument = -1;
};
