// The poll loop beside libevent and libuv: one byte written to one of several pipes, one pass, the byte read by the
// handler; and a pass over armed timers.
//
// All take turns round by round, and the median of the rounds counts, so that the ratios don't depend on what else the
// machine does. "bare" is the same work without a loop: write, poll(2) on all pipes, read. A poll that may wait costs
// the kernel more than one that may not, ready or not, and our loop makes the pass after an event without waiting:
// "bare0" is the bare work with a timeout of 0. The overhead of each loop is its time above the bare one with the
// timeout that it uses itself.
// Times in nanoseconds per event or pass:
//   overhead/ev_poll   our overhead divided by that of libevent with its poll backend
//   total/ev_poll      our whole time divided by that one's; below 1 we are faster
//   total/ev           the same for libevent with its default backend, epoll
//   total/uv           the same for libuv, which has epoll only
//   news               allocations per event of ours

#include <benchmark/benchmark.h>
#include <event2/event.h>
#include <poll.h>
#include <unistd.h>
#include <uv.h>

#include <array>
#include <deque>
#include <functional>
#include <vector>

#include "bench/news.h"
#include "bench/turns.h"
#include "runtime/pollprocessor.h"

namespace {

constexpr int kTimers = 32;
constexpr int kFarAway = 3'600'000;  // milliseconds

void ReadByte(int fd) {
  char byte;
  if (read(fd, &byte, 1) != 1) std::abort();
}

// The pipes; each event goes to another one, all over the array.
class Pipes {
 public:
  explicit Pipes(int count) : _ends(count) {
    for (auto& ends : _ends)
      if (pipe(ends.data()) != 0) std::abort();
  }
  Pipes(const Pipes&) = delete;
  Pipes& operator=(const Pipes&) = delete;
  ~Pipes() {
    for (const auto& ends : _ends) {
      close(ends[0]);
      close(ends[1]);
    }
  }

  int Count() const { return static_cast<int>(_ends.size()); }
  const int& Reader(int i) const { return _ends[i][0]; }
  // Returns the reading end.
  int WriteNext() {
    _next = (_next + 7) % _ends.size();
    if (write(_ends[_next][1], "x", 1) != 1) std::abort();
    return _ends[_next][0];
  }

 private:
  std::vector<std::array<int, 2>> _ends;
  size_t _next = 0;
};

class Bare {
 public:
  explicit Bare(const Pipes& pipes) {
    for (int i = 0; i < pipes.Count(); ++i) _fds.push_back({pipes.Reader(i), POLLIN, 0});
  }
  void Pass(int timeout) { benchmark::DoNotOptimize(poll(_fds.data(), _fds.size(), timeout)); }

 private:
  std::vector<pollfd> _fds;
};

class Own {
 public:
  explicit Own(const Pipes& pipes, int timers = 0) {
    for (int i = 0; i < pipes.Count(); ++i) _items.emplace_back(pipes.Reader(i));
    for (int i = 0; i < timers; ++i) _timers.emplace_back();
  }
  static void Pass(int timeout) { PollProcessor::Instance().Poll(timeout); }

 private:
  struct Item : PollItem {
    explicit Item(int descriptor) : PollItem(POLLIN, true), fd(descriptor) {}
    int Fileno() const override { return fd; }
    void HandleRead() override { ReadByte(fd); }
    int fd;
  };
  struct Timer : PollTimer {
    Timer() : PollTimer(kFarAway, true) {}
    void HandleTimeout() override {}
  };

  std::deque<Item> _items;
  std::deque<Timer> _timers;
};

class Event {
 public:
  Event(const Pipes& pipes, bool poll_backend, int timers = 0) {
    event_config* config = event_config_new();
    if (poll_backend)
      for (const char* other : {"epoll", "select"}) event_config_avoid_method(config, other);
    _base = event_base_new_with_config(config);
    event_config_free(config);
    const auto read_byte = [](evutil_socket_t fd, short, void*) { ReadByte(fd); };
    for (int i = 0; i < pipes.Count(); ++i)
      _Add(event_new(_base, pipes.Reader(i), EV_READ | EV_PERSIST, read_byte, nullptr), nullptr);
    const timeval far_away = {kFarAway / 1000, 0};
    for (int i = 0; i < timers; ++i)
      _Add(event_new(
               _base, -1, 0, [](int, short, void*) {}, nullptr),
           &far_away);
  }
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;
  ~Event() {
    for (event* one : _events) event_free(one);
    event_base_free(_base);
  }
  void Pass(int timeout) { event_base_loop(_base, timeout == 0 ? EVLOOP_NONBLOCK : EVLOOP_ONCE); }

 private:
  void _Add(event* one, const timeval* timeout) {
    event_add(one, timeout);
    _events.push_back(one);
  }

  event_base* _base;
  std::vector<event*> _events;
};

class Uv {
 public:
  explicit Uv(const Pipes& pipes, int timers = 0) : _polls(pipes.Count()), _timers(timers) {
    uv_loop_init(&_loop);
    for (int i = 0; i < pipes.Count(); ++i) {
      uv_poll_init(&_loop, &_polls[i], pipes.Reader(i));
      _polls[i].data = const_cast<int*>(&pipes.Reader(i));
      uv_poll_start(&_polls[i], UV_READABLE,
                    [](uv_poll_t* handle, int, int) { ReadByte(*static_cast<const int*>(handle->data)); });
    }
    for (uv_timer_t& timer : _timers) {
      uv_timer_init(&_loop, &timer);
      uv_timer_start(
          &timer, [](uv_timer_t*) {}, kFarAway, 0);
    }
  }
  Uv(const Uv&) = delete;
  Uv& operator=(const Uv&) = delete;
  ~Uv() {
    uv_walk(
        &_loop, [](uv_handle_t* handle, void*) { uv_close(handle, nullptr); }, nullptr);
    uv_run(&_loop, UV_RUN_DEFAULT);
    uv_loop_close(&_loop);
  }
  void Pass(int timeout) { uv_run(&_loop, timeout == 0 ? UV_RUN_NOWAIT : UV_RUN_ONCE); }

 private:
  uv_loop_t _loop = {};
  std::vector<uv_poll_t> _polls;
  std::vector<uv_timer_t> _timers;
};

enum Job : size_t { kOwn, kBareNoWait, kBare, kEventPoll, kEvent, kUv };  // as given to Turns
constexpr std::array<const char*, 6> kNames = {"own", "bare0", "bare", "ev_poll", "ev", "uv"};

Turns InTurns(const std::array<std::function<void()>, kNames.size()>& runs) {
  std::vector<Turns::Job> jobs;
  for (size_t job = 0; job < runs.size(); ++job) jobs.push_back({kNames[job], runs[job]});
  return Turns(jobs);
}

void Report(benchmark::State& state, const Turns& turns) {
  for (size_t job = 0; job < kNames.size(); ++job) state.counters[kNames[job]] = turns.Median(job) * 1e9;
  state.counters["overhead/ev_poll"] = turns.MedianAbove(kOwn, kBareNoWait) / turns.MedianAbove(kEventPoll, kBare);
  state.counters["total/ev_poll"] = turns.Median(kOwn) / turns.Median(kEventPoll);
  state.counters["total/ev"] = turns.Median(kOwn) / turns.Median(kEvent);
  state.counters["total/uv"] = turns.Median(kOwn) / turns.Median(kUv);
}

constexpr int kEvents = 100;  // of each job in a round
constexpr int kRounds = 1000;

void Dispatch(benchmark::State& state) {
  Pipes pipes(static_cast<int>(state.range(0)));
  Own own(pipes);
  Bare bare(pipes);
  Event event_poll(pipes, true), event_default(pipes, false);
  Uv uv(pipes);
  int64_t own_news = 0;
  const auto event_with = [&pipes](auto& loop) {
    return [&pipes, &loop] {
      pipes.WriteNext();
      loop.Pass(-1);
    };
  };
  const auto bare_with = [&](int timeout) {
    return [&, timeout] {
      const int fd = pipes.WriteNext();
      bare.Pass(timeout);
      ReadByte(fd);
    };
  };
  Turns turns =
      InTurns({[&] {
                 const int64_t before = news;
                 pipes.WriteNext();
                 Own::Pass(-1);
                 own_news += news - before;
               },
               bare_with(0), bare_with(-1), event_with(event_poll), event_with(event_default), event_with(uv)});
  turns.Round(kEvents);
  own_news = 0;
  int64_t events = 0;
  for ([[maybe_unused]] auto _ : state) {
    state.SetIterationTime(turns.Round(kEvents));
    events += kEvents;
  }
  Report(state, turns);
  state.counters["news"] = static_cast<double>(own_news) / static_cast<double>(events);
}
BENCHMARK(Dispatch)->RangeMultiplier(2)->Range(8, 64)->UseManualTime()->Iterations(kRounds);

void Timers(benchmark::State& state) {
  const Pipes none(0);
  Own own(none, kTimers);
  Bare bare(none);
  Event event_poll(none, true, kTimers), event_default(none, false, kTimers);
  Uv uv(none, kTimers);
  Turns turns = InTurns({[] { Own::Pass(0); }, [&] { bare.Pass(0); }, [&] { bare.Pass(0); },
                         [&] { event_poll.Pass(0); }, [&] { event_default.Pass(0); }, [&] { uv.Pass(0); }});
  for ([[maybe_unused]] auto _ : state) state.SetIterationTime(turns.Round(kEvents));
  Report(state, turns);
}
BENCHMARK(Timers)->UseManualTime()->Iterations(kRounds);

}  // namespace

BENCHMARK_MAIN();
