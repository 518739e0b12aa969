// A file that is opened by its path.

#pragma once

#include <string>

#include "runtime/streamfilebase.h"

class StreamFile : public StreamFileBase {
 public:
  using OpenFlags = int;  // those of open(2), passed on unchanged

  StreamFile() = default;
  StreamFile(const std::string& path, OpenFlags flags);  // as Open

  // Closes what is held, then opens. No mode goes with the flags, so O_CREAT and O_TMPFILE must not be among them.
  // An ErrnoError names the path.
  void Open(const std::string& path, OpenFlags flags);

  void Close();
};
