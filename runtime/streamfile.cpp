#include "runtime/streamfile.h"

#include <fcntl.h>

#include "runtime/errnoexcept.h"

StreamFile::StreamFile(const std::string& path, OpenFlags flags) {
  Open(path, flags);
}

void StreamFile::Open(const std::string& path, OpenFlags flags) {
  _close();
  const int fileno = ::open(path.c_str(), flags);
  if (fileno < 0) ThrowErrno("StreamFile: Unable to open ", path);
  _set_fileno(fileno);
}

void StreamFile::Close() {
  _close();
}
