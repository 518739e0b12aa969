// A push button with an LED, over one character device: reads what happens to the button, and sets the LED.
//
//   from the device   "D" pressed, "U" released, "L" held for long; any other byte means nothing
//   to the device     "Y" on, "N" off, "A" activity, "E" error
//
// Thread: the poll loop's. The device is on the loop from construction to destruction, and is read without a listener
// too. A write waits for a device that takes nothing.
//
// Callbacks: the listener is looked at anew before each event. It may change the listener, set the LED and unregister
// the device from the loop; it must not destroy it. What it throws ends the read, whose other events are lost.
//
// Errors: the constructor and the LED operations throw ErrnoError. What goes wrong in reading, exceptions of the
// listener included, is a line "UsbButtonDevice::HandleRead(): ERROR: " on standard output, and the device stays on the
// loop. One that has been pulled out therefore tells so in every pass, or lets the loop spin without a word, until its
// owner destroys the object: an LED operation that throws is the sign for it.

#pragma once

#include <array>
#include <string>

#include "runtime/pollprocessor.h"
#include "runtime/streamfile.h"

class UsbButtonDevice : public PollItem {
 public:
  class Listener {
   public:
    virtual ~Listener() noexcept(false) = default;
    virtual void GotUsbButtonDown() = 0;
    virtual void GotUsbButtonUp() = 0;
    virtual void GotUsbButtonLong();
  };

  // The device is opened for reading and writing.
  explicit UsbButtonDevice(const std::string& device);

  // Not owned, may be null; returns the one it replaces.
  Listener* RegisterListener(Listener* listener);

  int Fileno() const override { return _file.Fileno(); }
  void HandleRead() override;
  const char* Description() const override { return "UsbButtonDevice"; }

  // One byte each, at once.
  void LED_On();
  void LED_Off();
  void LED_Activity();
  void LED_Error();

 private:
  void _Dispatch(char event);

  StreamFile _file;
  Listener* _listener = nullptr;
  std::array<char, 64> _buffer = {};
};
