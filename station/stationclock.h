// The board's clock, kept by the GPS: its seconds name the pulses, the pulses' moments show how far the clock is off,
// and the law of serial/linuxclocksync.h turns that into a frequency for the kernel (adjtimex(2)).
//
// A pulse and the fix that follows it within 900 ms make a sample, where the fix is of a whole second. The clock is
// stepped at the first sample of all, where it is off by more than a millisecond, and later only where it is off by a
// second and more; every other correction is one of frequency. Without a pulse the moment of a fix says too little for
// a frequency: the clock is stepped where it is off by two seconds and more, and once more at the first sample.
//
// But for the first sample, a step takes two moments in a row that agree: a loop that stood still gets late what has
// waited meanwhile, and a sum of eight bits lets a wrong message pass now and then.
//
// Only watching, it tells how far the clock is off and changes nothing. The hardware clock is set with each step, and
// once an hour while fixes come.
//
// Thread: the poll loop's. Errors are told, not thrown, and the same one once: a board without a hardware clock goes on
// without. Without root's rights the clock is only watched.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "runtime/pollprocessor.h"
#include "runtime/timeval.h"
#include "serial/linuxclock.h"
#include "serial/linuxclocksync.h"

class StationClock {
 public:
  struct Law {
    int proportional;
    int integral;
  };

  // `clock` isn't owned and outlives this.
  StationClock(LinuxClock& clock, bool watch, const Law& law);

  static TimeVal Now();  // UTC since 1970, to the nanosecond
  // A record of runtime/measurementrecord.h is of the present moment.
  template <class Record>
  static void Stamp(Record& record) {
    const TimeVal now = Now();
    record.seconds = now.seconds;
    record.nanoseconds = now.nanoseconds;
  }

  void GotPulse(const TimeVal& moment);  // by the system's clock
  void GotFix(const TimeVal& moment);    // of the GPS

  // Of the last sample, in seconds; positive: the clock is fast. Without a value before the first one.
  std::optional<double> Offset() const { return _offset; }
  int64_t OffsetAge() const { return (PollTimer::Now() - _offset_came) / 1'000'000'000; }  // in seconds
  bool IsWatching() const { return _watch; }
  int64_t Steps() const { return _steps; }

 private:
  void _Sample(const TimeVal& clock, const TimeVal& truth);
  void _KeepHardwareClock();
  bool _IsConfirmed(double offset);
  void _Step(double seconds);
  void _SetFrequency(long frequency);
  template <class Deed>
  void _Set(Deed deed);

  LinuxClock& _clock;
  bool _watch;
  LinuxClockSync _law;
  TimeVal _pulse;
  int64_t _pulse_came = 0;    // on PollTimer's clock, nanoseconds; 0: none that is waiting for its fix
  int64_t _hardware_set = 0;  // likewise; 0: not yet
  std::optional<double> _offset;
  int64_t _offset_came = 0;        // on PollTimer's clock
  std::optional<double> _suspect;  // a step's, that waits for the next one to agree
  std::optional<long> _frequency;  // that the kernel has been told
  bool _sampled = false;
  int64_t _steps = 0;
  std::string _told;  // the last error
};
