// A deadline with an action, for examples.

#pragma once

#include <functional>
#include <utility>

#include "runtime/pollprocessor.h"

class Timer : public PollTimer {
 public:
  // `timeout` in milliseconds, negative for none yet. The action may set the timer anew.
  Timer(int timeout, std::function<void()> action) : PollTimer(timeout, true), _action(std::move(action)) {}
  void HandleTimeout() override { _action(); }

 private:
  const std::function<void()> _action;
};
