// One virtual clock for two processes, the one that is measured and its peers, so that the system tells what each has
// taken. One of them runs at a time: where its loop would sleep it passes the turn. The measured one gets it back only
// when something of what it waits for is ready or its deadline has come, as from the system's own poll(2). The peers
// look for it, as the two share their descriptors (clone(2)).
//
// The peers' side is the process that builds this and the VirtualTime before it; Start makes the other one.

#pragma once

#include <poll.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <stdexcept>

#include "emulators/shared_memory.h"
#include "emulators/virtual_time.h"

class SharedClock {
 public:
  explicit SharedClock(VirtualTime& time) : _time(time) {
    sem_init(&_shared.measured, 1, 0);
    sem_init(&_shared.peers, 1, 0);
  }
  SharedClock(const SharedClock&) = delete;
  SharedClock& operator=(const SharedClock&) = delete;
  ~SharedClock() {
    if (_measured < 0) return;
    kill(_measured, SIGKILL);
    waitpid(_measured, nullptr, 0);
  }

  // Before the loop has clients. `life` begins with the first sleep of the peers, or Pass, and doesn't end.
  void Start(const std::function<void()>& life) {
    constexpr size_t kStack = 8 << 20;  // bytes
    _stack = std::make_unique<char[]>(kStack);
    _life = life;
    const auto begin = [](void* self) { return static_cast<SharedClock*>(self)->_Live(); };
    // Both on one core, as a board has it: waking up another one takes more than most turns.
    cpu_set_t core;
    CPU_ZERO(&core);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &core);
    sched_setaffinity(0, sizeof core, &core);
    _measured = clone(begin, _stack.get() + kStack, CLONE_FILES | SIGCHLD, this);
    if (_measured < 0) throw std::runtime_error("no process to be had");
    _time.SetSleeper([this](pollfd* fds, nfds_t count, int64_t deadline) { _PeersSleep(fds, count, deadline); });
  }

  // From the measured one: seconds of processor time that its passing of turns has taken. A poll that really sleeps
  // takes as much or less.
  double Passing() const { return _passing; }

  // From the peers: the measured one gets the turn, and does what it finds to do. Throws std::runtime_error when it has
  // ended.
  void Pass() {
    _shared.now = _time.monotonic;
    sem_post(&_shared.measured);
    for (timespec bound = _Soon(); sem_timedwait(&_shared.peers, &bound) != 0; bound = _Soon()) {
      if (errno != ETIMEDOUT || waitpid(_measured, nullptr, WNOHANG) != _measured) continue;
      _measured = -1;
      throw std::runtime_error("the measured process has ended");
    }
    _time.monotonic = _shared.now;
  }

 private:
  static constexpr nfds_t kMost = 64;  // descriptors
  static constexpr int kSample = 16;   // turns
  static constexpr int kLooks = 40;    // some 30 us, for the kernel's worker behind a pty

  struct Shared {
    sem_t measured, peers;
    int64_t now;  // of the one that ran last
    // What the measured one waits for.
    pollfd fds[kMost];
    nfds_t count;
    int64_t deadline;
  };

  int _Live() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    _time.SetSleeper([this](const pollfd* fds, nfds_t count, int64_t deadline) {
      if (count > kMost) abort();
      std::copy(fds, fds + count, _shared.fds);
      _shared.count = count;
      _shared.deadline = deadline;
      const bool measured = ++_turns % kSample == 0;  // reading the clock each time would take a tenth itself
      const double start = measured ? _Taken() : 0;
      _shared.now = _time.monotonic;
      sem_post(&_shared.peers);
      _AwaitTurn();
      if (measured) _passing += kSample * (_Taken() - start);
    });
    _AwaitTurn();
    _life();
    _exit(1);
  }

  static double _Taken() {
    timespec taken = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &taken);
    return static_cast<double>(taken.tv_sec) + static_cast<double>(taken.tv_nsec) * 1e-9;
  }

  void _AwaitTurn() {
    while (sem_wait(&_shared.measured) != 0) continue;
    _time.monotonic = _shared.now;
  }

  // In real time, which the C library itself asks the system for.
  static timespec _Soon() {
    timespec moment = {};
    timespec_get(&moment, TIME_UTC);
    ++moment.tv_sec;
    return moment;
  }

  void _PeersSleep(pollfd* fds, nfds_t count, int64_t deadline) {
    for (;;) {
      if (_IsReady(fds, count)) return;
      bool ready = false;
      for (int look = 0; look < kLooks && !ready; ++look) ready = _IsReady(_shared.fds, _shared.count);
      if (!ready) {
        if (_IsReady(fds, count)) return;
        _time.monotonic = std::max(std::min(deadline, _shared.deadline), _time.monotonic.load());
        if (_time.monotonic >= deadline) return;
      }
      Pass();
    }
  }

  static bool _IsReady(pollfd* fds, nfds_t count) {
    const timespec none = {};
    return ppoll(fds, count, &none, nullptr) > 0;
  }

  VirtualTime& _time;
  Shared& _shared = MakeShared<Shared>();
  std::unique_ptr<char[]> _stack;
  std::function<void()> _life;
  pid_t _measured = -1;
  int _turns = 0;
  double _passing = 0;
};
