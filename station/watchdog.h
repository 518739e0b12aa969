// What the station tells systemd (sd_notify(3)): that it is ready, that it reads its settings again, that it ends; and,
// where the unit asks for it, that its loop still turns, twice in each interval. A loop that hangs is then ended and
// started again by systemd.
//
// Without systemd nothing is told. Thread: the poll loop's.

#pragma once

#include <string>

#include "runtime/pollprocessor.h"

class Watchdog : private PollTimer {
 public:
  Watchdog();

  void Ready(const std::string& status);
  void Reloading();  // Ready follows
  void Stopping();

 private:
  void HandleTimeout() override;
  const char* Description() const override { return "Watchdog"; }

  int _period = 0;  // milliseconds; 0: not asked for
};
