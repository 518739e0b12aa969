// Time that a test holds in its hand: while a VirtualTime lives, poll, clock_gettime, gettimeofday and time answer from
// it, and nothing waits. A poll that would sleep moves the clock to its deadline and returns; descriptors are still
// looked at for real, so pipes, sockets and ptys work as ever. Without a VirtualTime all four calls are the system's.
//
// The clock stands still otherwise, except that a loop which polls over and over without sleeping is granted a little
// time for each of these calls, so that it gets past what is left of a millisecond.
//
// A poll without limit sleeps for real when no Schedule is left: only a signal or a peer can end it.
//
// Threads: every thread reads the virtual clocks; only polls of the thread that built the VirtualTime move them, the
// others' are real, and it outlives them. A forked child goes on with a copy. One VirtualTime at a time.

#pragma once

#include <poll.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>

class VirtualTime {
 public:
  // 2024-03-01 00:00:00 UTC, in seconds since 1970.
  static constexpr int64_t kDefaultWall = 1'709'251'200;

  explicit VirtualTime(int64_t wall_seconds = kDefaultWall);
  VirtualTime(const VirtualTime&) = delete;
  VirtualTime& operator=(const VirtualTime&) = delete;
  ~VirtualTime();

  // Both clocks go on, as if the caller had been busy.
  void Advance(int64_t milliseconds) { AdvanceNanoseconds(milliseconds * 1'000'000); }
  void AdvanceNanoseconds(int64_t nanoseconds) { monotonic += nanoseconds; }
  // The wall clock alone is set.
  void StepWall(int64_t nanoseconds) { wall_ahead += nanoseconds; }
  // gettimeofday alone fails with EINVAL.
  void SetFailing(bool failing) { fails = failing; }

  // Calls `action` when a sleeping poll reaches this moment, in milliseconds from now; a signal that it raises
  // interrupts that poll. Actions may schedule more.
  void Schedule(int64_t milliseconds, const std::function<void()>& action) {
    scheduled.emplace(monotonic + milliseconds * 1'000'000, action);
  }

  // How long a poll that would sleep waits in real time for each second that it sleeps, and for what is left of one:
  // for peers that need some, as other processes and the kernel's own worker behind a pty. In milliseconds; 0 at first.
  void SetGrace(int milliseconds) { grace = milliseconds; }

  // For long runs of many timers: the clock stands on whole milliseconds only, so that nothing is left of one for a
  // loop to spin in. Before anything is timed.
  void Hurry() { spin_step = 1'000'000; }

  // Moves the clock in place of a poll that would sleep, up to `deadline` at most; what is ready is looked at behind
  // it. For a clock that is shared with another process.
  using Sleeper = std::function<void(pollfd* fds, nfds_t count, int64_t deadline)>;
  void SetSleeper(Sleeper way) { sleeper = std::move(way); }

  // How often a sleeping poll has moved the clock.
  int Sleeps() const { return sleeps; }

  // Milliseconds since the VirtualTime was built.
  int64_t Elapsed() const { return (monotonic - kStart) / 1'000'000; }

  // Of the calls that answer from it. Clocks are in nanoseconds.
  static constexpr int64_t kStart = 1'000'000'000'000;  // of the monotonic clock
  std::atomic<bool> fails = false;
  std::atomic<int64_t> monotonic = kStart;
  std::atomic<int64_t> wall_ahead;  // of the monotonic clock
  const pthread_t owner = pthread_self();
  int grace = 0, sleeps = 0, spins = 0;
  // Polls in a row that may pass without sleeping and with nothing ready, and what each one behind them is granted.
  int quiet_spins = 16;
  int64_t spin_step = 50'000;
  std::multimap<int64_t, std::function<void()>> scheduled;
  Sleeper sleeper;
};
