#include "station/stationclock.h"

#include <sys/timex.h>

#include <cmath>
#include <exception>
#include <iostream>
#include <utility>

#include "runtime/errnoexcept.h"
#include "runtime/superuser.h"
#include "station/rights.h"

namespace {

constexpr int64_t kSecond = 1'000'000'000;  // nanoseconds
constexpr int64_t kHour = 3'600 * kSecond;
constexpr int64_t kLatestFix = 900'000'000;
constexpr double kNear = 0.001;          // seconds: a first sample within it needs no step
constexpr double kStep = 1;              // beyond it the clock is stepped
constexpr double kStepWithoutPulse = 2;  // a fix comes up to a second late
constexpr double kAgree = 0.5;           // of moments that have waited each is off by a second less

double Seconds(const TimeVal& time) {
  return time.seconds + time.nanoseconds / 1e9;
}

}  // namespace

StationClock::StationClock(LinuxClock& clock, bool watch, const Law& law)
    : _clock(clock), _watch(watch), _law(false, law.integral, law.proportional) {}

TimeVal StationClock::Now() {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return {static_cast<int32_t>(now.tv_sec), static_cast<int32_t>(now.tv_nsec)};
}

void StationClock::GotPulse(const TimeVal& moment) {
  _pulse = moment;
  _pulse_came = PollTimer::Now();
}

void StationClock::GotFix(const TimeVal& moment) {
  if (moment.nanoseconds != 0) return;
  if (_pulse_came != 0 && PollTimer::Now() - _pulse_came < kLatestFix) {
    _pulse_came = 0;
    return _Sample(_pulse, moment);
  }
  const double offset = Seconds(Now() - moment);
  if (std::abs(offset) < kStepWithoutPulse) {
    _suspect.reset();
    return _KeepHardwareClock();
  }
  if (!_IsConfirmed(offset)) return;
  _offset = offset;
  _offset_came = PollTimer::Now();
  _Step(offset);
}

void StationClock::_Sample(const TimeVal& clock, const TimeVal& truth) {
  const double offset = Seconds(clock - truth);
  const bool steps = std::abs(offset) >= (_sampled ? kStep : kNear);
  if (!steps) _suspect.reset();
  if (steps && _sampled && !_IsConfirmed(offset)) return;
  _sampled = true;
  _offset = offset;
  _offset_came = PollTimer::Now();
  long frequency = 0;
  const bool corrects = _law.Sync(clock, truth, &frequency);
  if (steps) return _Step(offset);
  if (corrects) _SetFrequency(frequency);
  _KeepHardwareClock();
}

bool StationClock::_IsConfirmed(double offset) {
  const std::optional<double> before = std::exchange(_suspect, offset);
  return before && std::abs(offset - *before) < kAgree;
}

void StationClock::_KeepHardwareClock() {
  if (_hardware_set != 0 && PollTimer::Now() - _hardware_set < kHour) return;
  _Set([&] {
    _hardware_set = PollTimer::Now();
    _clock.SetHardwareTime(Now().seconds);
  });
}

// The hardware clock is set with the system's.
void StationClock::_Step(double seconds) {
  _Set([&] {
    const TimeVal now = Now();
    const auto nanoseconds = static_cast<int64_t>(std::llround(-seconds * 1e9)) + now.nanoseconds;
    const int64_t carry = nanoseconds >= 0 ? nanoseconds / kSecond : -((kSecond - 1 - nanoseconds) / kSecond);
    _hardware_set = PollTimer::Now();
    _suspect.reset();
    _clock.SetTime(static_cast<long>(now.seconds + carry), static_cast<long>(nanoseconds - carry * kSecond));
    ++_steps;
    std::cout << "The clock was off by " << seconds << " s and has been set" << std::endl;
  });
}

// Raising rights for what is in force already would wake each thread, and change nothing.
void StationClock::_SetFrequency(long frequency) {
  if (frequency == _frequency) return;
  _Set([&] {
    const SuperUser rights;
    timex wanted{};
    wanted.modes = ADJ_FREQUENCY;
    wanted.freq = frequency;
    if (adjtimex(&wanted) < 0) ThrowErrno("Unable to set the clock's frequency");
    _frequency = frequency;
  });
}

template <class Deed>
void StationClock::_Set(Deed deed) {
  if (_watch) return;
  try {
    deed();
  } catch (const std::exception& error) {
    if (std::exchange(_told, error.what()) == error.what()) return;
    _watch = !IsRootsProcess();
    std::cout << "ERROR: " << error.what() << (_watch ? "; the clock is only watched from now on" : "") << std::endl;
  }
}
