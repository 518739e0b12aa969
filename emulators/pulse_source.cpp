#include "emulators/pulse_source.h"

#include <sys/time.h>

namespace {

constexpr int64_t kSecond = 1'000'000;  // microseconds

}  // namespace

PulseSource::PulseSource() : PollTimer(-1, true) {
  _WaitForNext();
}

std::string PulseSource::Record(const TimeVal& time) {
  return {reinterpret_cast<const char*>(&time), sizeof time};
}

void PulseSource::HandleTimeout() {
  timeval now;
  gettimeofday(&now, nullptr);
  _fifo.Write(Record(TimeVal(static_cast<int32_t>(now.tv_sec), static_cast<int32_t>(now.tv_usec) * 1'000)));
  ++_pulses;
  _WaitForNext();
}

// Rounded up, as the timer counts whole milliseconds and may not come before the second.
void PulseSource::_WaitForNext() {
  timeval now;
  gettimeofday(&now, nullptr);
  SetTimeout(static_cast<int>((kSecond - now.tv_usec + 999) / 1'000));
}
