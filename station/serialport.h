// A device on a serial port that may be away, at the start too, and comes back: it is made anew then, within ten
// seconds. Why it can't be had is told once for each time that it is away.
//
//   SerialPort<SonicDevice> port([this](auto& device) { device.emplace(path, 1, bps, false); ... });
//   port.Look();  // at the start, and every ten seconds

#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <utility>

#include "station/absence.h"

template <class Device>
class SerialPort {
 public:
  // Makes the device; std::runtime_error where it can't be had.
  using Open = std::function<void(std::optional<Device>& device)>;

  explicit SerialPort(Open open) : _open(std::move(open)) {}

  // Not from a callback of the device.
  void Look() {
    if (_device && !_device->Reader().IsHungUp()) return;
    Reopen();
  }
  void Reopen() {
    _device.reset();
    try {
      _open(_device);
      _absence.Over();
    } catch (const std::runtime_error& error) {
      _device.reset();  // still away
      _absence.Tell(error);
    }
  }

  // nullptr while it is away.
  Device* Get() { return _device ? &*_device : nullptr; }
  bool IsOpen() const { return _device && !_device->Reader().IsHungUp(); }

 private:
  const Open _open;
  mutable std::optional<Device> _device;
  Absence _absence;
};
