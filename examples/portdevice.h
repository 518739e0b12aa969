// A device on a serial port that may go and come back, as an adapter does that is pulled out: it is made anew each
// second until that succeeds.
//
//   PortDevice<SonicDevice> anemometer([&](std::optional<SonicDevice>& device) {
//     device.emplace(path, 1, 57600, false);
//     device->RegisterListener(&listener);
//   });

#pragma once

#include <unistd.h>

#include <csignal>
#include <functional>
#include <optional>
#include <stdexcept>
#include <utility>

#include "examples/timer.h"
#include "runtime/pollprocessor.h"

template <class Device>
class PortDevice {
 public:
  using Open = std::function<void(std::optional<Device>& device)>;

  // What the first `open` throws passes through.
  explicit PortDevice(Open open) : _open(std::move(open)) {
    // Who leads a session gets a hang-up when its port goes.
    if (getsid(0) == getpid()) PollProcessor::Instance().IgnoreSignal(SIGHUP);
    _open(_device);
  }

 private:
  void _Look() {
    constexpr int kSecond = 1'000;  // milliseconds
    _look.SetTimeout(kSecond);
    if (_device && !_device->Reader().IsHungUp()) return;
    _device.reset();
    try {
      _open(_device);
    } catch (const std::runtime_error&) {
      _device.reset();  // still away
    }
  }

  const Open _open;
  std::optional<Device> _device;  // none while the port is away
  Timer _look{0, [this] { _Look(); }};
};
