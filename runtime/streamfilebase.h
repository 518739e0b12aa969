// The owner of one file descriptor, which can also serve as a standard stream.
//
// The descriptor is closed exactly once: by _close, by taking another one, or by the destructor. A copy holds a
// duplicate (dup(2)) and closes on its own; both share the file's position, neither shares streams or buffers. One
// thread per object.
//
// Errors: ErrnoError where the system failed, StreamFileBaseError where the object is closed or unusable. A failing
// close is thrown from the destructor too, unless another exception is under way; it is swallowed then. So a class that
// derives from this one, or holds one, has a destructor that may throw, and an object in a container or behind a smart
// pointer, whose own destructors don't let that through, is closed by hand first where it matters.

#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

class StreamFileBase {
 public:
  StreamFileBase();                     // closed
  explicit StreamFileBase(int fileno);  // as _set_fileno
  StreamFileBase(const StreamFileBase& other);
  virtual ~StreamFileBase() noexcept(false);

  // Closes what is held and duplicates the other's descriptor if that is above 0: descriptor 0 is left out on purpose.
  // Like the copy constructor it ends closed, without a word, when the duplicate can't be had. Assigning an object to
  // itself does nothing.
  StreamFileBase& operator=(const StreamFileBase& other);

  int Fileno() const { return _fd; }  // -1 when closed
  bool IsOpen() const { return _fd >= 0; }

  // Closes what is held and takes over `fileno`, which must be open and not the one that was held; a negative one is a
  // StreamFileBaseError.
  void _set_fileno(int fileno);

  // Deletes the streams, which writes out what the output stream holds, and closes the descriptor. Whether the last
  // bytes got through is not told here: flush the stream and look at its state to know. When close(2) fails the object
  // keeps the number of the descriptor. Nothing happens on a closed object.
  void _close();

  void SetNonBlock();

  // One system call each, which may move fewer bytes than were asked for. They return the count; every failure is
  // thrown, EAGAIN and EINTR too.
  unsigned int Read(void* data, unsigned int size);
  unsigned int Write(const void* data, unsigned int size);

  // What is there, 4,096 bytes at most. 0 and an empty string: end of file; the object stays open.
  unsigned int Read(std::string& data);
  unsigned int Write(const std::string& data);

  // The stream on this descriptor, with a buffer of 8,192 bytes, made at the first call and valid until the descriptor
  // is closed. The other operations here know nothing of its buffer. A descriptor that isn't open for writing or
  // reading respectively is a StreamFileBaseError.
  std::ostream& OStream();
  std::istream& IStream();

 protected:
  void _check_open() const;  // throws StreamFileBaseError "StreamFileBase: file is closed"

 private:
  int _fd = -1;
  std::unique_ptr<std::ostream> _ostream;
  std::unique_ptr<std::istream> _istream;
  std::vector<char> _buffer;  // of Read(string&)
};
