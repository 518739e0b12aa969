#include "station/button.h"

#include <fcntl.h>
#include <termios.h>

#include <stdexcept>
#include <utility>

StationButton::StationButton(const Settings& settings, std::function<void()> pressed, std::function<void()> held)
    : _path(settings.button.device), _pressed(std::move(pressed)), _held(std::move(held)) {}

// One that has gone without a sign shows when its light is set.
void StationButton::Look() {
  if (_path.empty()) return;
  if (_device && _device->HasGone()) _device.reset();
  try {
    if (!_device) {
      _device.emplace(_path);
      _device->RegisterListener(this);
      fcntl(_device->Fileno(), F_SETFL, O_RDWR | O_NONBLOCK);  // one that takes nothing mustn't keep the loop
    }
    _Light();
    _absence.Over();
  } catch (const std::runtime_error& error) {
    if (_device) tcflush(_device->Fileno(), TCOFLUSH);  // nor when it is closed
    _device.reset();
    _absence.Tell(error);
  }
}

void StationButton::Show(Light light) {
  if (std::exchange(_light, light) != light) Look();
}

void StationButton::_Light() {
  switch (_light) {
    case Off:
      return _device->LED_Off();
    case On:
      return _device->LED_On();
    case Error:
      return _device->LED_Error();
  }
}

void StationButton::GotUsbButtonUp() {
  if (!std::exchange(_long, false)) _pressed.Ask();
}

void StationButton::GotUsbButtonLong() {
  _long = true;
  _held.Ask();
}
