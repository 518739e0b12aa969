#include "emulators/fifo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

Fifo::Fifo() {
  // Open for both, it neither waits for the other side nor ends without it.
  Must(mkfifo(_path.c_str(), 0600) == 0, "make ", _path);
  _instrument = open(_path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  Must(_instrument >= 0, "open ", _path);
}

Fifo::~Fifo() {
  close(_instrument);
}

void Fifo::Write(const std::string& bytes) {
  [[maybe_unused]] const ssize_t taken = write(_instrument, bytes.data(), bytes.size());
}
