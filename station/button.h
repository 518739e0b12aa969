// The push button with its light: a press starts or stops the recording, a long one makes the disk ready to be taken
// away. The light shows what becomes of the data: on while it is recorded, an error while it should be and isn't.

#pragma once

#include <functional>
#include <optional>
#include <string>

#include "serial/usbbuttondevice.h"
#include "station/absence.h"
#include "station/instrument.h"
#include "station/pluggeddevice.h"
#include "station/settings.h"

class StationButton : public Instrument, private UsbButtonDevice::Listener {
 public:
  enum Light { Off, On, Error };

  // `pressed` and `held` are called behind the device's own callback, and may do anything.
  StationButton(const Settings& settings, std::function<void()> pressed, std::function<void()> held);

  bool IsConnected() const override { return _device && !_device->HasGone(); }
  void Look() override;
  void Show(Light light);

 private:
  // The device mustn't be destroyed in its callback, and a press may end in it. Each press counts, also when a loop
  // that stood still gets several at once.
  class _Later : public PollTimer {
   public:
    explicit _Later(std::function<void()> deed) : PollTimer(-1, true), _deed(std::move(deed)) {}
    void Ask() {
      ++_times;
      SetTimeout(0);
    }
    void HandleTimeout() override {
      while (_times > 0) {
        --_times;
        _deed();
      }
    }

   private:
    const std::function<void()> _deed;
    int _times = 0;
  };

  void GotUsbButtonDown() override {}
  void GotUsbButtonUp() override;
  void GotUsbButtonLong() override;
  void _Light();

  const std::string _path;
  std::optional<PluggedDevice<UsbButtonDevice>> _device;
  Absence _absence;
  _Later _pressed, _held;
  bool _long = false;  // the press that is under way
  Light _light = Off;
};
