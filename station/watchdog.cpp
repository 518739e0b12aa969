#include "station/watchdog.h"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstdint>

Watchdog::Watchdog() : PollTimer(-1, true) {
  constexpr uint64_t kLongest = 3'600'000;  // milliseconds
  uint64_t interval = 0;                    // microseconds
  if (sd_watchdog_enabled(0, &interval) <= 0) return;
  _period = static_cast<int>(std::clamp<uint64_t>(interval / 2'000, 1, kLongest));
  SetTimeout(0);
}

void Watchdog::Ready(const std::string& status) {
  sd_notifyf(0, "READY=1\nSTATUS=%s", status.c_str());
}

void Watchdog::Reloading() {
  sd_notify(0, "RELOADING=1");
}

void Watchdog::Stopping() {
  sd_notify(0, "STOPPING=1");
}

void Watchdog::HandleTimeout() {
  SetTimeout(_period);
  sd_notify(0, "WATCHDOG=1");
}
