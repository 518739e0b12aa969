#include "tests/support/virtual_time.h"

#include <poll.h>
#include <pthread.h>
#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <ctime>
#include <limits>
#include <map>
#include <utility>

extern "C" {
int __real_poll(pollfd* fds, nfds_t count, int timeout);
int __real_clock_gettime(clockid_t clock, timespec* now);
int __real_gettimeofday(timeval* now, void* zone);
time_t __real_time(time_t* now);
}

namespace {

constexpr int64_t kNanosPerSecond = 1'000'000'000;
constexpr int64_t kNanosPerMilli = 1'000'000;
constexpr int64_t kStart = 1'000 * kNanosPerSecond;  // of the monotonic clock

// How many polls in a row may pass without sleeping before each is granted kSpinStep: when nothing was ready, and when
// something was.
constexpr int kQuietSpins = 16;
constexpr int kReadySpins = 1'000;
constexpr int64_t kSpinStep = 50'000;

// The longest stretch that the clock is moved by one grace.
constexpr int64_t kGraceSlice = kNanosPerSecond;

std::atomic<bool> on = false;
std::atomic<bool> fails = false;      // gettimeofday
std::atomic<int64_t> monotonic = 0;   // nanoseconds
std::atomic<int64_t> wall_ahead = 0;  // of the monotonic clock, nanoseconds

// Of the owning thread only.
pthread_t owner;
int grace = 0;
int sleeps = 0;
int spins = 0;
std::multimap<int64_t, std::function<void()>> scheduled;

int Spin(int ready) {
  if (++spins > (ready == 0 ? kQuietSpins : kReadySpins)) monotonic += kSpinStep;
  return ready;
}

// Signals raised by the actions stay blocked until the kernel looks at them as it would in a sleeping poll.
int RunScheduled(pollfd* fds, nfds_t count) {
  sigset_t all, previous;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &previous);
  while (!scheduled.empty() && scheduled.begin()->first <= monotonic) scheduled.extract(scheduled.begin()).mapped()();
  const timespec at_once = {};
  const int result = ppoll(fds, count, &at_once, &previous);
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);  // leaves errno alone
  return result;
}

int Sleep(pollfd* fds, nfds_t count, int timeout) {
  const int64_t deadline = timeout < 0 ? std::numeric_limits<int64_t>::max() : monotonic + timeout * kNanosPerMilli;
  for (;;) {
    const bool for_real = timeout < 0 && scheduled.empty();
    const int ready = __real_poll(fds, count, for_real ? -1 : grace);
    if (ready != 0) return Spin(ready);
    spins = 0;
    ++sleeps;
    int64_t until = grace > 0 ? std::min(deadline, monotonic + kGraceSlice) : deadline;
    const bool reached = !scheduled.empty() && scheduled.begin()->first <= until;
    if (reached) until = std::max(scheduled.begin()->first, monotonic.load());
    monotonic = until;
    if (reached) {
      if (const int woken = RunScheduled(fds, count); woken != 0) return woken;
    } else if (until == deadline) {
      return 0;
    }
  }
}

int64_t Wall() {
  return monotonic + wall_ahead;
}

}  // namespace

extern "C" {
int __wrap_poll(pollfd* fds, nfds_t count, int timeout) {
  if (!on || !pthread_equal(owner, pthread_self())) return __real_poll(fds, count, timeout);
  return timeout == 0 ? Spin(__real_poll(fds, count, 0)) : Sleep(fds, count, timeout);
}

int __wrap_clock_gettime(clockid_t clock, timespec* now) {
  const bool is_wall = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
  const bool is_monotonic = clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_RAW ||
                            clock == CLOCK_MONOTONIC_COARSE || clock == CLOCK_BOOTTIME;
  if (!on || !(is_wall || is_monotonic)) return __real_clock_gettime(clock, now);
  const int64_t nanos = is_wall ? Wall() : monotonic.load();
  *now = {static_cast<time_t>(nanos / kNanosPerSecond), static_cast<long>(nanos % kNanosPerSecond)};
  return 0;
}

int __wrap_gettimeofday(timeval* now, void* zone) {
  if (!on) return __real_gettimeofday(now, zone);
  if (fails) return errno = EINVAL, -1;
  const int64_t nanos = Wall();
  *now = {static_cast<time_t>(nanos / kNanosPerSecond), static_cast<suseconds_t>(nanos % kNanosPerSecond / 1'000)};
  return 0;
}

time_t __wrap_time(time_t* now) {
  if (!on) return __real_time(now);
  const auto seconds = static_cast<time_t>(Wall() / kNanosPerSecond);
  if (now != nullptr) *now = seconds;
  return seconds;
}
}

VirtualTime::VirtualTime(int64_t wall_seconds) {
  owner = pthread_self();
  monotonic = kStart;
  wall_ahead = wall_seconds * kNanosPerSecond - kStart;
  grace = sleeps = spins = 0;
  fails = false;
  on = true;
}

VirtualTime::~VirtualTime() {
  on = false;
  scheduled.clear();
}

void VirtualTime::AdvanceNanoseconds(int64_t nanoseconds) {
  monotonic += nanoseconds;
}

void VirtualTime::SetFailing(bool failing) {
  fails = failing;
}

void VirtualTime::Schedule(int64_t milliseconds, std::function<void()> action) {
  scheduled.emplace(monotonic + milliseconds * kNanosPerMilli, std::move(action));
}

void VirtualTime::SetGrace(int milliseconds) {
  grace = milliseconds;
}

int VirtualTime::Sleeps() const {
  return sleeps;
}

int64_t VirtualTime::Elapsed() const {
  return (monotonic - kStart) / kNanosPerMilli;
}
