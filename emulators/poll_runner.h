// Runs the poll loop until something has happened or a bound of time is over.
//
// Under a VirtualTime the bound is virtual; otherwise it is real, and only a failing test waits for it.

#pragma once

#include <algorithm>

#include "runtime/pollprocessor.h"

// True when `done` became true within `bound` milliseconds; it is asked before each pass. What is due at the
// very end of the bound still happens. Ends early, with the last answer of `done`, when the loop quits.
template <typename Done>
bool PollUntil(Done done, int bound = 10'000) {
  const int64_t end = PollTimer::Now() + bound * int64_t{1'000'000};
  while (!done()) {
    const int64_t left = std::max<int64_t>(end - PollTimer::Now(), 0);
    if (!PollProcessor::Instance().Poll(static_cast<int>((left + 999'999) / 1'000'000)) || left == 0) return done();
  }
  return true;
}

// Lets the loop run for this long, in milliseconds.
inline void PollFor(int duration) {
  PollUntil([] { return false; }, duration);
}

// Single passes that don't wait.
inline void PollPasses(int count) {
  while (count-- > 0) PollProcessor::Instance().Poll(0);
}
