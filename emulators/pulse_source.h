// A pulse-per-second device: at the top of each second of the system's clock it tells that clock's present moment, as 8
// bytes, seconds and nanoseconds in the byte order of this machine.
//
// Thread: the poll loop's, on whose time it lives.

#pragma once

#include <string>

#include "emulators/fifo.h"
#include "runtime/pollprocessor.h"
#include "runtime/timeval.h"

class PulseSource : public PollTimer {
 public:
  PulseSource();

  const std::string& Path() const { return _fifo.Path(); }
  int Pulses() const { return _pulses; }  // sent so far

  // What is sent for a pulse.
  static std::string Record(const TimeVal& time);

  void HandleTimeout() override;
  const char* Description() const override { return "PulseSource"; }

 private:
  void _WaitForNext();

  Fifo _fifo;
  int _pulses = 0;
};
