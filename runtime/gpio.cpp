#include "runtime/gpio.h"

#include <fcntl.h>

#include <iostream>

#include "runtime/errnoexcept.h"
#include "runtime/streamfile.h"

bool Gpio::_debug = false;

Gpio::Gpio(int number, Direction direction, bool activeLow) : _number(number) {
  _export();
  _setActiveLow(activeLow);
  _setDirection(direction);
}

Gpio::Gpio(int number, Direction direction, bool activeLow, bool initial) : _number(number) {
  _export();
  _setActiveLow(activeLow);
  _setDirection(direction, activeLow, initial);
}

std::string Gpio::_filename(const std::string& name) const {
  const std::string all = "/sys/class/gpio/";
  return name == "export" ? all + name : all + "gpio" + std::to_string(_number) + '/' + name;
}

void Gpio::_Write(const char* name, const std::string& text) const {
  StreamFile(_filename(name), O_WRONLY).Write(text);
}

// No blank in front of the number: that is how these messages read.
void Gpio::_Tell(const std::string& what) const {
  std::cout << "Setting GPIO" << _number << what << '\n';
}

void Gpio::_export() const {
  if (_debug) {
    std::cout << "Exporting GPIO" << _number << '\n';
    return;
  }
  try {
    const StreamFile exported(_filename("value"), O_RDONLY);
  } catch (const ErrnoError&) {
    _Write("export", std::to_string(_number));
  }
}

void Gpio::_setActiveLow(bool on) const {
  if (_debug) return _Tell(on ? " active low" : " active high");
  _Write("active_low", on ? "1" : "0");
}

void Gpio::_setDirection(Direction direction) const {
  _setDirStr(direction == Output ? "out" : "in");
}

// "low" and "high" are levels, whatever the line's active level is.
void Gpio::_setDirection(Direction direction, bool activeLow, bool initial) const {
  _setDirStr(direction == Input ? "in" : initial == activeLow ? "low" : "high");
}

void Gpio::_setDirStr(const std::string& text) const {
  if (_debug) return _Tell(" to " + text);
  _Write("direction", text);
}

void Gpio::_setValue(bool on) const {
  if (_debug) return _Tell(on ? " to 1" : " to 0");
  _Write("value", on ? "1" : "0");
}

bool Gpio::_getValue() const {
  char value = 0;
  StreamFile(_filename("value"), O_RDONLY).Read(&value, 1);
  return value == '1';
}

void GpioOut::setValue(bool on) {
  _value = on;
  _setValue(on);
}

void GpioOut::toggle() {
  setValue(!_value);
}
