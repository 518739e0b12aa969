#include "runtime/filereader.h"

#include <fcntl.h>

namespace {

constexpr unsigned int kChunkSize = 8192;

}  // namespace

FileReader::FileReader() : PollItem(0, true) {}

void FileReader::Open(const std::string& path) {
  if (_file.IsOpen()) return;
  _waiting = 0;
  _file.Open(path, O_RDWR);
  SetRequestedEvents(POLLIN);
}

unsigned int FileReader::Read(std::string& out) {
  if (_waiting == 0) HandleRead();
  const unsigned int count = _waiting;
  if (count == 0) return 0;
  out.assign(_chunk.data(), count);
  _waiting = 0;
  SetRequestedEvents(POLLIN);
  return count;
}

void FileReader::Close() {
  if (!_file.IsOpen()) return;
  SetRequestedEvents(0);
  _file.Close();
  _waiting = 0;
}

void FileReader::HandleRead() {
  if (!_file.IsOpen()) return;
  _chunk.resize(kChunkSize);  // once: it stays as large
  _waiting = _file.Read(_chunk.data(), kChunkSize);
  SetRequestedEvents(0);
  if (_waiting == 0) Close();
}
