#include "emulators/virtual_time.h"

#include <poll.h>

#include <sys/time.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <limits>

extern "C" {
int __real_poll(pollfd* fds, nfds_t count, int timeout);
int __real_clock_gettime(clockid_t clock, timespec* now);
int __real_gettimeofday(timeval* now, void* zone);
time_t __real_time(time_t* now);
}

namespace {

constexpr int64_t kNanosPerSecond = 1'000'000'000;

// How many polls in a row may pass without sleeping before each is granted a step, when something was ready.
constexpr int kReadySpins = 1'000;

std::atomic<VirtualTime*> current = nullptr;

int Spin(VirtualTime& time, int ready) {
  if (++time.spins > (ready == 0 ? time.quiet_spins : kReadySpins)) time.monotonic += time.spin_step;
  return ready;
}

// Signals raised by the actions stay blocked until the kernel looks at them as it would in a sleeping poll.
int RunScheduled(VirtualTime& time, pollfd* fds, nfds_t count) {
  sigset_t all, previous;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &previous);
  auto& scheduled = time.scheduled;
  while (!scheduled.empty() && scheduled.begin()->first <= time.monotonic)
    scheduled.extract(scheduled.begin()).mapped()();
  const timespec at_once = {};
  const int result = ppoll(fds, count, &at_once, &previous);
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);  // leaves errno alone
  return result;
}

int Sleep(VirtualTime& time, pollfd* fds, nfds_t count, int timeout) {
  const int64_t start = time.monotonic;
  const int64_t deadline = timeout < 0 ? std::numeric_limits<int64_t>::max() : start + timeout * int64_t{1'000'000};
  if (time.sleeper) {
    time.spins = 0;
    time.sleeper(fds, count, deadline);
    return __real_poll(fds, count, 0);
  }
  for (;;) {
    const auto& scheduled = time.scheduled;
    const int ready = __real_poll(fds, count, timeout < 0 && scheduled.empty() ? -1 : time.grace);
    if (ready != 0) return Spin(time, ready);
    time.spins = 0;
    ++time.sleeps;
    const int64_t now = time.monotonic;
    int64_t until = time.grace > 0 ? std::min(deadline, now + kNanosPerSecond) : deadline;
    const bool reached = !scheduled.empty() && scheduled.begin()->first <= until;
    if (reached) until = std::max(scheduled.begin()->first, now);
    time.monotonic = until;
    if (reached) {
      if (const int woken = RunScheduled(time, fds, count); woken != 0) return woken;
    } else if (until == deadline) {
      return 0;
    }
  }
}

}  // namespace

extern "C" {
int __wrap_poll(pollfd* fds, nfds_t count, int timeout) {
  VirtualTime* const time = current;
  if (time == nullptr || !pthread_equal(time->owner, pthread_self())) return __real_poll(fds, count, timeout);
  return timeout == 0 ? Spin(*time, __real_poll(fds, count, 0)) : Sleep(*time, fds, count, timeout);
}

int __wrap_clock_gettime(clockid_t clock, timespec* now) {
  const VirtualTime* const time = current;
  const bool wall = clock == CLOCK_REALTIME;
  if (time == nullptr || (!wall && clock != CLOCK_MONOTONIC)) return __real_clock_gettime(clock, now);
  const int64_t nanos = time->monotonic + (wall ? time->wall_ahead.load() : 0);
  *now = {static_cast<time_t>(nanos / kNanosPerSecond), static_cast<long>(nanos % kNanosPerSecond)};
  return 0;
}

int __wrap_gettimeofday(timeval* now, void* zone) {
  const VirtualTime* const time = current;
  if (time == nullptr) return __real_gettimeofday(now, zone);
  if (time->fails) return errno = EINVAL, -1;
  timespec wall;
  __wrap_clock_gettime(CLOCK_REALTIME, &wall);
  *now = {wall.tv_sec, wall.tv_nsec / 1'000};
  return 0;
}

time_t __wrap_time(time_t* now) {
  if (current == nullptr) return __real_time(now);
  timespec wall;
  __wrap_clock_gettime(CLOCK_REALTIME, &wall);
  if (now != nullptr) *now = wall.tv_sec;
  return wall.tv_sec;
}
}

VirtualTime::VirtualTime(int64_t wall_seconds) : wall_ahead(wall_seconds * kNanosPerSecond - kStart) {
  current = this;
}

VirtualTime::~VirtualTime() {
  current = nullptr;
}
