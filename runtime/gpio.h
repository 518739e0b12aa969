// One line of the board's general purpose inputs and outputs, through the files below /sys/class/gpio (the kernel's
// Documentation/admin-guide/gpio/sysfs.rst).
//
// A line stays exported and keeps its state when its object goes; lines are never unexported. No descriptor is held:
// each operation opens its file, makes one write or read, and closes it. Nothing waits for the rights on a freshly
// exported line to be set.
//
// Errors: StreamFile's. What can't be opened is an ErrnoError "StreamFile: Unable to open " with the path, what can't
// be written one "StreamFileBase: error in Write".
//
// Thread: the poll loop's.

#pragma once

#include <string>

class Gpio {
 public:
  enum Direction { Input = 0, Output = 1 };

  // For a machine without the hardware: nothing is written, and each write is told on standard output instead. Class-
  // wide; to be set before any line is built.
  static bool _debug;

  // Exports the line unless that has been done, then sets it up. The level of an output is that of the hardware's
  // choice.
  Gpio(int number, Direction direction, bool activeLow);
  // As above; an output starts with `initial`, without a glitch. An input takes no notice of it.
  Gpio(int number, Direction direction, bool activeLow, bool initial);
  virtual ~Gpio() = default;

  void _export() const;
  void _setActiveLow(bool on) const;
  void _setDirection(Direction direction) const;
  void _setDirection(Direction direction, bool activeLow, bool initial) const;
  void _setDirStr(const std::string& text) const;  // "in", "out", "low" or "high"
  // Logical values: an active-low line that is true has the low level.
  void _setValue(bool on) const;
  bool _getValue() const;  // reads the file even while _debug is set
  // "export" is the file for all lines; every other name is one of this line's own.
  std::string _filename(const std::string& name) const;

 private:
  void _Write(const char* name, const std::string& text) const;
  void _Tell(const std::string& what) const;

  const int _number;
};

// An active-high output that knows its value: false at first, which construction doesn't write.
class GpioOut : public Gpio {
 public:
  explicit GpioOut(int number) : Gpio(number, Output, false) {}

  void setValue(bool on);
  void toggle();

 private:
  bool _value = false;
};
