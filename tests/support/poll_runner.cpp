#include "tests/support/poll_runner.h"

#include "runtime/pollprocessor.h"

bool PollUntil(const std::function<bool()>& done, int bound) {
  const int64_t end = PollTimer::Now() + bound * int64_t{1'000'000};
  while (!done()) {
    const int64_t left = end - PollTimer::Now();
    if (left <= 0) {
      PollProcessor::Instance().Poll(0);
      return done();
    }
    if (!PollProcessor::Instance().Poll(static_cast<int>((left + 999'999) / 1'000'000))) return done();
  }
  return true;
}

void PollFor(int duration) {
  PollUntil([] { return false; }, duration);
}

void PollPasses(int count) {
  while (count-- > 0) PollProcessor::Instance().Poll(0);
}
