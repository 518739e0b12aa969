// A file as a source for the poll loop, one chunk read ahead: while a chunk is on its way out the next one is read.
//
// The owner takes chunks with Read until that returns 0, which also means that the file is closed. Lives on the thread
// of the poll loop. Nothing is reported to anybody: the loop only fills the buffer, and errors of reading and closing
// (ErrnoError of StreamFileBase) reach the caller of Read or the host of the loop, whichever was reading.
//
// After such an error the file is still open and still asks for events, so a source that goes on failing throws out of
// Poll in every pass, until somebody calls Close: the host sees to it that the owner does.

#pragma once

#include <string>
#include <vector>

#include "runtime/pollprocessor.h"
#include "runtime/streamfile.h"

class FileReader : public PollItem {
 public:
  FileReader();  // registered, nothing open

  // Opens for reading and writing, on purpose: a file that may not be written is not sent. Nothing happens when a file
  // is open already.
  void Open(const std::string& path);

  // Hands over the chunk that waits, or reads one now. Returns its size; 0: no more, and `out` is left alone.
  unsigned int Read(std::string& out);

  void Close();

  int Fileno() const override { return _file.Fileno(); }
  void HandleRead() override;
  const char* Description() const override { return "FileReader"; }

 private:
  std::vector<char> _chunk;
  unsigned int _waiting = 0;  // bytes in _chunk that nobody has taken
  StreamFile _file;
};
