// A pulse-per-second device: hands the moment of each pulse to its listener.
//
// The device is a character device, or a FIFO, that gives 8 bytes a pulse: seconds and nanoseconds, two signed 32-bit
// words in the byte order of this machine. Each read is whole for itself: bytes behind its last whole record are
// dropped.
//
// Thread: the poll loop's. The device is on the loop from construction to destruction, and is read without a listener
// too.
//
// Callbacks: the listener is looked at anew before each pulse. It may change the listener and unregister the device
// from the loop; it must not destroy it. What it throws ends the read, whose other pulses are lost.
//
// Errors: the constructor throws ErrnoError with the path. What goes wrong later, exceptions of the listener included,
// is a line "PPSDevice::HandleRead(): ERROR: " on standard output, and the device stays on the loop. One that has gone
// therefore tells so in every pass, or lets the loop spin without a word: its owner has to notice that no pulse comes
// any more, and to destroy the object.

#pragma once

#include <array>
#include <string>

#include "runtime/pollprocessor.h"
#include "runtime/streamfile.h"
#include "runtime/timeval.h"

class PPSDevice : public PollItem {
 public:
  class Listener {
   public:
    virtual ~Listener() noexcept(false) = default;
    // As the device gave it; gone when the call returns.
    virtual void GotPPS(const TimeVal& time) = 0;
  };

  // The device is opened for reading and writing. `verbose` is kept; there is nothing to tell.
  PPSDevice(const std::string& device, bool verbose);

  // Not owned, may be null; returns the one it replaces.
  Listener* RegisterListener(Listener* listener);
  Listener* GetListener() const { return _listener; }

  int Fileno() const override { return _file.Fileno(); }
  void HandleRead() override;
  const char* Description() const override { return "PPSDevice"; }

 private:
  StreamFile _file;
  Listener* _listener = nullptr;
  std::array<char, 16384> _buffer = {};
  [[maybe_unused]] const bool _verbose;
};
