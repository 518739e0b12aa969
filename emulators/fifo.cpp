#include "emulators/fifo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "runtime/errnoexcept.h"

Fifo::Fifo() : _directory(std::filesystem::temp_directory_path() / "moorlog-fifo-XXXXXX") {
  if (mkdtemp(_directory.data()) == nullptr) throw ErrnoError("Unable to make " + _directory);
  _path = _directory + "/device";
  // Open for both, it neither waits for the other side nor ends without it.
  if (mkfifo(_path.c_str(), 0600) == 0) _instrument = open(_path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (_instrument >= 0) return;
  const int error = errno;
  std::error_code ignored;
  std::filesystem::remove_all(_directory, ignored);
  throw ErrnoError("Unable to make " + _path, error);
}

Fifo::~Fifo() {
  close(_instrument);
  std::error_code ignored;
  std::filesystem::remove_all(_directory, ignored);
}

void Fifo::Write(const std::string& bytes) {
  [[maybe_unused]] const ssize_t taken = write(_instrument, bytes.data(), bytes.size());
}
