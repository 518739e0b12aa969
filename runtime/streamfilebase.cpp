#include "runtime/streamfilebase.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <exception>
#include <istream>
#include <ostream>

#include "runtime/errnoexcept.h"

namespace {

constexpr unsigned int kReadSize = 4096;

// A stream buffer on a descriptor that belongs to somebody else. The file buffers of the standard library close theirs
// when they go, so two of them on one descriptor, or one and its owner, would close it twice.
class DescriptorBuffer : public std::streambuf {
 public:
  explicit DescriptorBuffer(int fileno) : _fd(fileno) {}
  ~DescriptorBuffer() override { _flush(); }
  DescriptorBuffer(const DescriptorBuffer&) = delete;
  DescriptorBuffer& operator=(const DescriptorBuffer&) = delete;

 protected:
  int_type overflow(int_type c) override {
    if (pbase() == nullptr) setp(_data.data(), _data.data() + _data.size());
    if (pptr() == epptr() && !_flush()) return traits_type::eof();
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
      *pptr() = traits_type::to_char_type(c);
      pbump(1);
    }
    return traits_type::not_eof(c);
  }

  // The last character stays in front of the new ones, so that one can always be put back.
  int_type underflow() override {
    const int kept = gptr() == eback() ? 0 : 1;
    if (kept == 1) _data[0] = gptr()[-1];
    ssize_t count;
    do count = ::read(_fd, _data.data() + kept, _data.size() - kept);
    while (count < 0 && errno == EINTR);
    // The stream catches this and becomes bad: an error must not look like the end of the file.
    if (count < 0) throw ErrnoError("StreamFileBase: error in Read");
    setg(_data.data(), _data.data() + kept, _data.data() + kept + count);
    return count == 0 ? traits_type::eof() : traits_type::to_int_type(*gptr());
  }

  int sync() override { return _flush() ? 0 : -1; }

  pos_type seekoff(off_type offset, std::ios_base::seekdir way, std::ios_base::openmode) override {
    if (!_flush()) return pos_type(off_type(-1));
    if (way == std::ios_base::cur) offset -= egptr() - gptr();
    const int whence = way == std::ios_base::beg ? SEEK_SET : way == std::ios_base::cur ? SEEK_CUR : SEEK_END;
    const off_t position = ::lseek(_fd, offset, whence);
    if (position >= 0) setg(nullptr, nullptr, nullptr);
    return position;
  }

  pos_type seekpos(pos_type position, std::ios_base::openmode which) override {
    return seekoff(off_type(position), std::ios_base::beg, which);
  }

 private:
  // False when not all went out; what is left stays for the next try, so that no byte is written twice.
  bool _flush() {
    char* from = pbase();
    while (from != pptr()) {
      const ssize_t count = ::write(_fd, from, pptr() - from);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) break;
      from += count;
    }
    const auto left = pptr() - from;
    if (from != pbase()) {
      traits_type::move(pbase(), from, left);
      setp(_data.data(), _data.data() + _data.size());
      pbump(static_cast<int>(left));
    }
    return left == 0;
  }

  int _fd;
  std::array<char, 8192> _data;  // the put area of an output stream or the get area of an input stream, never both
};

// A stream together with its buffer, in the classic locale whatever the global one is.
template <class Stream>
class DescriptorStream : public Stream {
 public:
  explicit DescriptorStream(int fileno) : Stream(nullptr), _buffer(fileno) {
    this->rdbuf(&_buffer);
    this->imbue(std::locale::classic());
  }

 private:
  DescriptorBuffer _buffer;
};

// Whether the descriptor is open in the given one of O_RDONLY and O_WRONLY.
bool Allows(int fileno, int access) {
  const int flags = ::fcntl(fileno, F_GETFL);
  return flags >= 0 && ((flags & O_ACCMODE) == access || (flags & O_ACCMODE) == O_RDWR);
}

}  // namespace

StreamFileBase::StreamFileBase() = default;

StreamFileBase::StreamFileBase(int fileno) {
  _set_fileno(fileno);
}

StreamFileBase::StreamFileBase(const StreamFileBase& other) : _fd(other._fd >= 0 ? ::dup(other._fd) : -1) {}

StreamFileBase::~StreamFileBase() noexcept(false) {
  try {
    _close();
  } catch (...) {
    if (std::uncaught_exceptions() == 0) throw;
  }
}

StreamFileBase& StreamFileBase::operator=(const StreamFileBase& other) {
  if (this == &other) return *this;
  _close();
  if (other._fd > 0) _fd = ::dup(other._fd);
  return *this;
}

void StreamFileBase::_set_fileno(int fileno) {
  _close();
  if (fileno < 0) throw StreamFileBaseError("StreamFileBase: invalid file descriptor");
  _fd = fileno;
}

void StreamFileBase::_close() {
  _ostream.reset();
  _istream.reset();
  if (_fd < 0) return;
  if (::close(_fd) != 0) throw ErrnoError("StreamFileBase: unable to close file");
  _fd = -1;
}

void StreamFileBase::SetNonBlock() {
  const int flags = ::fcntl(_fd, F_GETFL);
  if (flags < 0) throw ErrnoError("StreamFileBase: unable to get file flags");
  if (::fcntl(_fd, F_SETFL, flags | O_NONBLOCK) < 0) throw ErrnoError("StreamFileBase: unable to set file flags");
}

unsigned int StreamFileBase::Read(void* data, unsigned int size) {
  _check_open();
  const ssize_t count = ::read(_fd, data, size);
  if (count < 0) throw ErrnoError("StreamFileBase: error in Read");
  return static_cast<unsigned int>(count);
}

unsigned int StreamFileBase::Write(const void* data, unsigned int size) {
  _check_open();
  const ssize_t count = ::write(_fd, data, size);
  if (count < 0) throw ErrnoError("StreamFileBase: error in Write");
  return static_cast<unsigned int>(count);
}

unsigned int StreamFileBase::Read(std::string& data) {
  _buffer.resize(kReadSize);  // once: it stays as large
  const unsigned int count = Read(_buffer.data(), kReadSize);
  data.assign(_buffer.data(), count);
  return count;
}

unsigned int StreamFileBase::Write(const std::string& data) {
  return Write(data.data(), static_cast<unsigned int>(std::min<size_t>(data.size(), UINT_MAX)));
}

std::ostream& StreamFileBase::OStream() {
  _check_open();
  if (!_ostream) {
    if (!Allows(_fd, O_WRONLY)) throw StreamFileBaseError("StreamFileBase: unable to create ostream");
    _ostream = std::make_unique<DescriptorStream<std::ostream>>(_fd);
  }
  return *_ostream;
}

std::istream& StreamFileBase::IStream() {
  _check_open();
  if (!_istream) {
    if (!Allows(_fd, O_RDONLY)) throw StreamFileBaseError("StreamFileBase: unable to create istream");
    _istream = std::make_unique<DescriptorStream<std::istream>>(_fd);
  }
  return *_istream;
}

void StreamFileBase::_check_open() const {
  if (_fd < 0) throw StreamFileBaseError("StreamFileBase: file is closed");
}
