// A serial port: its settings and modem lines, its output queue, its input.
//
// A driver opens one device file three times, with one object of each class below; each has a non-blocking descriptor
// of its own, so the three are destroyed in any order. Constants, bits and calls are those of termios(3) and
// ioctl_tty(2).
//
// Thread: the poll loop's. No operation blocks.
//
// Errors: what can't be reached at all is thrown, as DeviceError. What a caller asks for by value and can't be had is a
// result, with a line on the error stream. Reading and writing report nothing: a cable that is cut is noticed by the
// driver's own timeouts.
//
// A port that goes (an adapter that is pulled out, a carrier that drops, a pseudo-terminal whose other end closes)
// never comes back to an open descriptor. Reader and writer then rest, and IsHungUp() tells the owner, who destroys all
// that is open on the port and makes it anew.

#pragma once

#include <termios.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "runtime/pollprocessor.h"

// The descriptor: open from construction on, closed by the destructor.
class LinuxTTYBase {
 public:
  enum OpenMode { OpenRead = 1, OpenWrite = 2, OpenReadWrite = 3 };

  class DeviceError : public std::runtime_error {
   public:
    using std::runtime_error::runtime_error;
  };

  // A mode that is none of the three opens for reading and writing. The port may become the controlling terminal of a
  // session leader that has none, as a service of the system is one: O_NOCTTY is left out on purpose. When that port
  // goes, SIGHUP ends the process, unless it is ignored (PollProcessor::IgnoreSignal).
  LinuxTTYBase(const std::string& path, OpenMode mode);
  LinuxTTYBase(const LinuxTTYBase&) = delete;
  LinuxTTYBase& operator=(const LinuxTTYBase&) = delete;
  ~LinuxTTYBase();

 protected:
  int _checked_fd() const;  // asserts that it is open

  int _ttyfd = -1;
};

// A port on the poll loop. At a hang-up, an error or an invalid descriptor it says so in one line on standard output,
// and asks for no event ever after.
class LinuxTTYItem : public PollItem, public LinuxTTYBase {
 public:
  // Asks the system as well, and so may be ahead of the loop.
  bool IsHungUp() const;

  int Fileno() const override;
  void HandleError() override;
  void HandleHangUp() override;
  void HandleInvalid() override;

 protected:
  LinuxTTYItem(const std::string& path, OpenMode mode, short events);

  bool _hung_up = false;  // as the loop has told

 private:
  const std::string _path;
};

// Hands what arrives to its listener, and drops it while there is none.
class LinuxTTYReader : public LinuxTTYItem {
 public:
  class Listener {
   public:
    // May throw as those of the poll loop's clients may: a driver is often both.
    virtual ~Listener() noexcept(false) = default;
    // `data`: 1 to 4,096 bytes, as they came; gone when the call returns. The listener may do anything but destroy the
    // reader.
    virtual void ReceivedChars(LinuxTTYReader& reader, const char* data, int length) = 0;
  };

  explicit LinuxTTYReader(const std::string& path);

  // Not owned, may be null; returns the one it replaces.
  Listener* RegisterListener(Listener* listener);

  void HandleRead() override;
  const char* Description() const override;

 private:
  Listener* _listener = nullptr;
  std::vector<char> _buffer;
};

// Sends what it is given as fast as the line takes it. At most 4,096 bytes wait, which bounds what a stalled instrument
// can hold up; what waits at destruction is dropped.
class LinuxTTYWriter : public LinuxTTYItem {
 public:
  explicit LinuxTTYWriter(const std::string& path);

  // Queues what there is room for and returns its size in bytes; the rest is the caller's business. A port that has
  // gone takes nothing.
  int Write(const char* data, int length);
  int Write(const std::string& text);
  int Room() const;  // bytes that Write would queue now

  void HandleWrite() override;
  const char* Description() const override;

 private:
  std::vector<char> _queue;
};

// The line's settings. Opening makes the line raw, as far as an instrument needs it: no signals, no editing, no echo,
// no translation of carriage returns, no hardware flow control. INLCR, IGNCR and IXON are left as found on purpose, and
// so are speed and character format. The destructor restores what was found.
class LinuxTTYControl : public LinuxTTYBase {
 public:
  enum { ParityNone, ParityEven, ParityOdd, ParityMark, ParitySpace };

  struct ConfigInfo {
    int baudRate = 9600;  // bits per second: 300, 1200, 2400, 4800, 9600, 19200, 38400, 57600 or 115200
    int stopBits = 1;     // 1 or 2
    int parity = ParityNone;
    int dataBits = 8;  // 7 or 8
    bool softwareFlowControl = false;
    bool hardwareFlowControl = false;

    friend bool operator==(const ConfigInfo&, const ConfigInfo&) = default;
  };

  struct LineInfo {
    bool rts = false;
    bool dtr = false;
    bool cts = false;
    bool dsr = false;

    friend bool operator==(const LineInfo&, const LineInfo&) = default;
  };

  // What the kernel has counted since the driver was loaded: changes of the lines, then bytes, then errors.
  struct LineCounters {
    int32_t cts = 0;
    int32_t dsr = 0;
    int32_t rng = 0;
    int32_t dcd = 0;
    int32_t rx = 0;
    int32_t tx = 0;
    int32_t frame = 0;
    int32_t overrun = 0;
    int32_t parity = 0;
    int32_t brk = 0;
    int32_t buf_overrun = 0;
  };

  explicit LinuxTTYControl(const std::string& path);
  ~LinuxTTYControl();

  static bool IsBaudRate(int rate);  // one of that list

  // As the device has it. A speed outside the list above reads as 0, and so does a character size that is neither 7
  // nor 8. Throws DeviceError.
  ConfigInfo configuration() const;

  // False, and a line on the error stream, when a value or the whole is refused; the device is then as before. Mark
  // and space parity are taken and mean none. The modem lines count afterwards: CLOCAL is cleared on purpose. Throws
  // DeviceError when the present settings can't be read.
  bool configure(const ConfigInfo& config);

  // All false, and a line on the error stream, when they can't be read.
  LineInfo lineStatus() const;

  // Sets RTS, then DTR. False when one of them fails, with a line on the error stream, and when the lines belong to the
  // hardware flow control, without one. Throws DeviceError.
  bool lineControl(const LineInfo& lines);

  // All zero, and a line on the error stream, when they can't be read.
  LineCounters lineCounters() const;

  // A break of the system's default duration; a failure is a line on the error stream.
  void sendBreak();

 private:
  termios _settings() const;
  bool _set_line(int line, bool on, const char* name);

  termios _saved = {};
  bool _have_saved;
};
