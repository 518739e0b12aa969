#include "runtime/pollprocessor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <functional>
#include <memory>
#include <numeric>
#include <optional>
#include <string>

#include "runtime/errnoexcept.h"
#include "runtime/signalprocessor.h"
#include "tests/support/child_process.h"
#include "tests/support/poll_runner.h"
#include "tests/support/virtual_time.h"

namespace {

using Log = std::vector<std::string>;
using testing::ElementsAre;
using testing::IsEmpty;

PollProcessor& Loop() {
  return PollProcessor::Instance();
}

// One client of each kind: each logs its name, then does what the test asks for.
struct Client {
  Log& log;
  std::string name;
  std::function<void()> then = [] {};
  void Called(const std::string& what = {}) {
    log.push_back(name + what);
    const auto running = then;  // which may put another in its place
    running();
  }
};

struct Timer : Client, PollTimer {
  Timer(Log& to, const std::string& n, int timeout = -1) : Client{to, n}, PollTimer(timeout, true) {}
  void HandleTimeout() override { Called(); }
};

struct Idle : Client, PollIdleHandler {
  Idle(Log& to, const std::string& n, int times) : Client{to, n}, PollIdleHandler(true), more(times) {}
  bool HandleIdle() override {
    Called();
    return --more > 0;
  }
  int more;
};

struct Signal : Client, PollSignalHandler {
  Signal(Log& to, const std::string& n, int signal) : Client{to, n}, PollSignalHandler(signal, true) {}
  void HandleSignal(int signal) override { Called(signal == SIGUSR1 ? "1" : signal == SIGUSR2 ? "2" : "?"); }
};

struct Item : Client, PollItem {
  Item(Log& to, const std::string& n, int descriptor, short events = POLLIN)
      : Client{to, n}, PollItem(events, true), fd(descriptor) {}
  int Fileno() const override {
    ++asked;
    return fd;
  }
  void HandleRead() override { Called(" read"); }
  void HandleWrite() override { Called(" write"); }
  void HandleError() override { Called(" error"); }
  void HandleInvalid() override { Called(" invalid"); }
  void HandleHangUp() override { Called(" hang-up"); }
  int fd;
  mutable int asked = 0;
};

struct Pipe {
  Pipe() { EXPECT_EQ(pipe(ends), 0); }
  ~Pipe() {
    close(ends[0]);
    close(ends[1]);
  }
  void Fill() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
  void Drain() const {
    char byte;
    EXPECT_EQ(read(ends[0], &byte, 1), 1);
  }
  int ends[2];
};

class PollLoop : public testing::Test {
 protected:
  PollLoop() { PollPasses(2); }  // past the activity of the test before

  Log Pass(int timeout = 0) {
    log.clear();
    EXPECT_TRUE(Loop().Poll(timeout));
    return log;
  }

  VirtualTime time;
  Log log;
};

TEST_F(PollLoop, APassDeliversSignalsThenTimersThenEventsAndIdleWorkOnlyWithoutThem) {
  const Pipe pipe;
  Item item(log, "item", pipe.ends[0]);
  item.then = [&] { pipe.Drain(); };
  Timer timer(log, "timer", 0);
  const Idle idle(log, "idle", 1);
  const Signal signal(log, "signal", SIGUSR1);
  pipe.Fill();
  raise(SIGUSR1);
  EXPECT_THAT(Pass(), ElementsAre("signal1", "timer", "item read"));
  EXPECT_THAT(Pass(), ElementsAre("idle"));
  EXPECT_THAT(Pass(), IsEmpty());
}

TEST_F(PollLoop, AnItemGetsItsEventsInAFixedOrderUntilItUnregisters) {
  const struct {
    short revents;
    size_t unregister_after;
    const char* calls;
  } rows[] = {
      {POLLPRI | POLLIN | POLLOUT | POLLERR | POLLHUP | POLLNVAL, 9, " read read write error hang-up invalid"},
      {POLLIN | POLLHUP, 9, " read hang-up"},
      {POLLIN | POLLHUP, 1, " read"},
      {POLLPRI | POLLIN, 1, " read"},
      {POLLOUT | POLLERR | POLLNVAL, 2, " write error"},
      {POLLRDHUP | POLLRDNORM, 9, ""},
  };
  for (const auto& row : rows) {
    log.clear();
    Item item(log, "", -1);
    item.then = [&] {
      if (log.size() == row.unregister_after) item.UnRegister();
    };
    item.HandleEvents(row.revents);
    EXPECT_EQ(std::accumulate(log.begin(), log.end(), std::string()), row.calls) << row.revents;
  }
}

TEST_F(PollLoop, OnlyChangesRebuildTheArray) {
  const Pipe first, second;
  Item item(log, "item", first.ends[0]);
  Item closed(log, "closed", -1);
  first.Fill();
  second.Fill();
  item.SetRequestedEvents(0);
  EXPECT_THAT(Pass(), IsEmpty());
  const int asked = item.asked;
  item.SetRequestedEvents(0);
  EXPECT_THAT(Pass(), IsEmpty());
  EXPECT_EQ(item.asked, asked);
  item.SetRequestedEvents(POLLIN);
  EXPECT_THAT(Pass(), ElementsAre("item read"));
  closed.fd = second.ends[0];
  EXPECT_THAT(Pass(), ElementsAre("item read"));
  Loop().EventChange();
  EXPECT_THAT(Pass(), ElementsAre("item read", "closed read"));
  item.UnRegister();
  EXPECT_THAT(Pass(), ElementsAre("closed read"));
}

// What the handler of the first item does to the others, whose records of the same poll call are still to come.
TEST_F(PollLoop, RecordsAreMatchedToItemsAtTheMomentOfTheCall) {
  const Pipe a, b;
  a.Fill();
  b.Fill();
  Item first(log, "first", a.ends[0]);
  auto second = std::make_unique<Item>(log, "second", b.ends[0]);
  first.then = [&] { second.reset(); };
  EXPECT_THAT(Pass(), ElementsAre("first read")) << "the stale record finds nobody";

  second = std::make_unique<Item>(log, "second", b.ends[0]);
  std::optional<Item> heir;
  first.then = [&] {
    second.reset();
    heir.emplace(log, "heir", b.ends[0]);
    first.then = [] {};
  };
  EXPECT_THAT(Pass(), ElementsAre("first read", "heir read")) << "the stale record finds the descriptor's new owner";

  const Item twin(log, "twin", a.ends[0]);
  EXPECT_THAT(Pass(), ElementsAre("first read", "heir read", "first read")) << "the first registered gets both";

  first.then = [&] {
    first.then = [] {};
    heir.reset();
    Loop().Poll(0);  // a pass within the pass, over a shorter array
  };
  EXPECT_THAT(Pass(), ElementsAre("first read", "first read", "first read"));
}

TEST_F(PollLoop, TheNextExpiryShortensTheWait) {
  const struct {
    const char* name;
    int64_t expiry;  // nanoseconds from now
    int timeout;     // milliseconds
    int64_t slept;
  } rows[] = {
      {"no wait asked for", 500'000'000, 0, 0},
      {"timer later", 500'000'000, 100, 100},
      {"timer earlier", 500'000'000, 1'000, 500},
      {"no limit", 500'000'000, -1, 500},
      {"rounded down", 500'999'999, -1, 500},
      {"less than a millisecond", 999'999, -1, 0},
      {"more than poll can wait", (INT_MAX + int64_t{5}) * 1'000'000, -1, INT_MAX},
  };
  for (const auto& row : rows) {
    Timer timer(log, "timer", 0);
    timer.UnRegister();
    PollPasses(2);
    timer.Register();
    timer.SetTimeout(static_cast<int>(row.expiry / 1'000'000 / 2));
    timer.AddTimeout(static_cast<int>((row.expiry / 1'000'000 + 1) / 2));
    time.AdvanceNanoseconds(timer.Expiry() - PollTimer::Now() - row.expiry);
    const int64_t before = time.Elapsed();
    EXPECT_THAT(Pass(row.timeout), IsEmpty()) << row.name;
    EXPECT_EQ(time.Elapsed() - before, row.slept) << row.name;
  }
}

TEST_F(PollLoop, AMomentOfTheWallClockBecomesWholeMilliseconds) {
  const struct {
    int64_t seconds, microseconds;  // from now
    int64_t expiry;                 // milliseconds from now
  } rows[] = {{2, 0, 2'000}, {1, 500'999, 1'500}, {0, 999, 0},           {0, 0, 0},
              {-3, 0, 0},    {-1, 999'999, 0},    {-3'000'000'000, 0, 0}};
  Timer timer(log, "timer");
  for (const auto& row : rows) {
    const timeval deadline = {static_cast<time_t>(VirtualTime::kDefaultWall + row.seconds),
                              static_cast<suseconds_t>(row.microseconds)};
    timer.SetTimeout(&deadline);
    time.StepWall(86'400'000);  // comes too late to matter
    EXPECT_EQ(timer.Expiry() - PollTimer::Now(), row.expiry * 1'000'000) << row.seconds;
    time.StepWall(-86'400'000);
    EXPECT_TRUE(timer.IsActive()) << row.seconds;
  }
  timer.SetTimeout(nullptr);
  EXPECT_FALSE(timer.IsActive());
  EXPECT_THAT(Pass(), IsEmpty());
}

TEST_F(PollLoop, OnlyARegisteredTimerCanBeArmed) {
  struct Lost : PollTimer {
    Lost() : PollTimer(10, false) {}
    void HandleTimeout() override {}
  } timer;
  const timeval past = {};
  timer.SetTimeout(10);
  timer.AddTimeout(10);
  timer.SetTimeout(&past);
  EXPECT_FALSE(timer.IsActive());
  timer.Register();
  EXPECT_FALSE(timer.IsActive());
  for (const auto& disarm : std::initializer_list<std::function<void()>>{
           [&] { timer.SetTimeout(-1); }, [&] { timer.AddTimeout(-1); }, [&] { timer.UnRegister(); }}) {
    timer.SetTimeout(10);
    const int64_t expiry = timer.Expiry();
    disarm();
    EXPECT_FALSE(timer.IsActive());
    timer.Register();
    timer.AddTimeout(5);
    EXPECT_TRUE(timer.IsActive());
    EXPECT_EQ(timer.Expiry(), expiry + 5'000'000);
  }
}

TEST_F(PollLoop, ATimerOfTheSamePassCanStillBeStopped) {
  for (const std::string what : {"unregister", "destroy", "disarm", "later", "nothing"}) {
    Timer first(log, "first", 0);
    auto second = std::make_unique<Timer>(log, "second", 0);
    first.then = [&] {
      if (what == "unregister") second->UnRegister();
      if (what == "destroy") second.reset();
      if (what == "disarm") second->SetTimeout(-1);
      if (what == "later") second->SetTimeout(30);
    };
    EXPECT_EQ(Pass(), what == "nothing" ? (Log{"first", "second"}) : Log{"first"}) << what;
    const int64_t before = time.Elapsed();
    EXPECT_EQ(PollUntil([&] { return log.size() > 1; }, 100), what == "later" || what == "nothing") << what;
    EXPECT_EQ(time.Elapsed() - before, what == "later" ? 30 : what == "nothing" ? 0 : 100) << what;
  }
}

TEST_F(PollLoop, APeriodDoesNotDriftOverADayHoweverLateItsCallsCome) {
  Timer timer(log, "", 1'000);
  const int64_t armed = timer.Expiry();
  int fired = 0;
  timer.then = [&] {
    log.clear();
    EXPECT_LE(timer.Expiry(), PollTimer::Now());
    timer.AddTimeout(1'000);
    if (++fired % 100 == 0) time.Advance(2'500);
  };
  PollFor(86'400'000);
  EXPECT_EQ(fired, 86'400);
  EXPECT_EQ(timer.Expiry() - armed, 86'400 * int64_t{1'000'000'000});
}

TEST_F(PollLoop, AnExceptionReachesTheHostAndLosesNoWork) {
  const auto fail = [] { throw std::runtime_error("handler"); };
  Timer first(log, "first", 0), second(log, "second", 0);
  first.then = fail;
  EXPECT_THROW(Loop().Poll(0), std::runtime_error);
  EXPECT_THAT(Pass(), ElementsAre("second"));
  EXPECT_THAT(Pass(), IsEmpty());

  Signal catcher(log, "catcher", SIGUSR1), other(log, "other", SIGUSR1);
  catcher.then = fail;
  raise(SIGUSR1);
  EXPECT_THROW(Loop().Poll(0), std::runtime_error);
  EXPECT_THAT(Pass(), ElementsAre("other1")) << "though nothing new has arrived";
  EXPECT_THAT(Pass(), IsEmpty());

  const Pipe pipe;
  Item item(log, "item", pipe.ends[0]);
  item.then = fail;
  pipe.Fill();
  EXPECT_THROW(Loop().Poll(0), std::runtime_error);
  item.then = [&] { pipe.Drain(); };
  EXPECT_THAT(Pass(), ElementsAre("item read"));

  Idle idle(log, "idle", 1);
  const Idle left(log, "left", 1);
  idle.then = fail;
  EXPECT_THROW(Loop().Poll(0), std::runtime_error);
  idle.then = [] {};
  EXPECT_THAT(Pass(), ElementsAre("left", "idle"));
}

TEST_F(PollLoop, IdleWorkKeepsTheLoopFromWaitingAndStartsAnewAfterActivity) {
  const Pipe pipe;
  Item item(log, "item", pipe.ends[0]);
  item.then = [&] { pipe.Drain(); };
  Idle a(log, "a", 3), b(log, "b", 1);
  const Signal signal(log, "signal", SIGUSR1);
  const struct {
    const char* activity;
    int more;    // calls that the first handler has work for
    Log passes;  // number of the pass and what it called
    int sleeps;  // of five passes
  } rows[] = {
      {"none", 2, {"0a", "0b", "1a"}, 3},
      {"event", 3, {"0item read", "1a", "1b", "2a", "3a"}, 1},
      {"timer", 3, {"0timer", "0a", "0b", "1a", "2a"}, 2},
      {"signal", 3, {"0signal1"}, 5},
  };
  for (const auto& row : rows) {
    const std::string activity = row.activity;
    a.more = row.more;
    if (activity == "event") pipe.Fill();
    const Timer timer(log, "timer", activity == "timer" ? 0 : -1);
    if (activity == "signal") raise(SIGUSR1);
    const int sleeps = time.Sleeps();
    Log passes;
    for (int pass = 0; pass < 5; ++pass)
      for (const auto& call : Pass(100)) passes.push_back(std::to_string(pass) + call);
    EXPECT_EQ(passes, row.passes) << activity;
    EXPECT_EQ(time.Sleeps() - sleeps, row.sleeps) << activity;
  }
  b.then = [&] { a.UnRegister(); };
  a.then = [&] { b.UnRegister(); };
  Timer timer(log, "timer", 0);
  EXPECT_THAT(Pass(), ElementsAre("timer", "a")) << "b was picked, and struck out";
}

TEST_F(PollLoop, SignalsAreDeliveredOnceInAscendingOrderToWhoIsStillThere) {
  Signal two(log, "x", SIGUSR2), one(log, "y", SIGUSR1), twice(log, "z", SIGUSR1);
  twice.Register(SIGUSR1);
  twice.Register(SIGUSR2);
  raise(SIGUSR2);
  raise(SIGUSR1);
  raise(SIGUSR1);
  EXPECT_THAT(Pass(), ElementsAre("y1", "z1", "z1", "x2", "z2"));
  one.then = [&] {
    twice.UnRegister();
    raise(SIGUSR1);  // while it is being delivered: the next pass
  };
  raise(SIGUSR1);
  raise(SIGUSR2);
  EXPECT_THAT(Pass(), ElementsAre("y1", "x2"));
  one.UnRegister();
  EXPECT_THAT(Pass(), IsEmpty());
  EXPECT_FALSE(SignalProcessor::instance().any_pending()) << "taken, and delivered to nobody";
}

TEST_F(PollLoop, ASignalEndsTheWaitAndThePassThatItInterrupts) {
  const Pipe pipe;
  const Item item(log, "item", pipe.ends[0]);
  const Signal signal(log, "signal", SIGUSR1);
  const Timer timer(log, "timer", 400);
  time.Schedule(300, [] { raise(SIGUSR1); });
  const int64_t before = time.Elapsed();
  EXPECT_THAT(Pass(-1), ElementsAre("signal1"));
  EXPECT_EQ(time.Elapsed() - before, 300);
  EXPECT_THAT(Pass(-1), IsEmpty());
  EXPECT_THAT(Pass(-1), ElementsAre("timer"));
}

TEST_F(PollLoop, QuittingIsForEver) {
  for (const int signal : {SIGTERM, SIGINT}) {
    const ChildResult child = RunInChild([&] {
      Loop().QuitOnSignal(SIGTERM);
      Loop().QuitOnSignal(SIGINT);
      Loop().IgnoreSignal(SIGHUP);
      Timer timer(log, "timer", 50);
      time.Schedule(10, [] { raise(SIGHUP); });
      time.Schedule(20, [&] { raise(signal); });
      Loop().Poll(0);
      EXPECT_TRUE(Loop().Poll(-1));
      EXPECT_EQ(time.Elapsed(), 10) << "a dropped signal interrupts too";
      EXPECT_FALSE(Loop().Poll(-1));
      EXPECT_EQ(time.Elapsed(), 20);
      time.Advance(1'000);
      EXPECT_FALSE(Loop().Poll(-1));
      EXPECT_THAT(log, IsEmpty());
    });
    EXPECT_EQ(child.exit_status, 0) << child.output;
  }
}

TEST_F(PollLoop, AFailingPollIsThrown) {
  const ChildResult child = RunInChild([&] {
    const Pipe pipe;
    const Item item(log, "item", pipe.ends[0]);
    Pass();
    std::string text;
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);  // poll(2) refuses more records than that
    try {
      Loop().Poll(0);
    } catch (const ErrnoError& error) {
      setrlimit(RLIMIT_NOFILE, &limit);
      text = error.what();
    }
    EXPECT_EQ(text, "PollProcessor: error calling poll(): Invalid argument");
  });
  EXPECT_EQ(child.exit_status, 0) << child.output;
}

TEST_F(PollLoop, ADayOfTimersSignalsAndIdleWork) {
  std::vector<std::unique_ptr<Timer>> timers;
  std::vector<int> fired(10);
  int idled = 0, signalled = 0;
  Idle idle(log, "", INT_MAX);
  idle.then = [&] { idle.more = ++idled % 3 != 0 ? 2 : 0; };
  Signal signal(log, "", SIGUSR1);
  signal.then = [&] { ++signalled; };
  for (int i = 0; i < 10; ++i) {
    timers.push_back(std::make_unique<Timer>(log, "", 10'000 + 1'000 * i));
    timers.back()->then = [&, i] {
      timers[i]->AddTimeout(10'000 + 1'000 * i);
      if (++fired[i] % 10 == 0) raise(SIGUSR1);
      log.clear();
    };
  }
  PollFor(86'400'000);
  int all = 0;
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(fired[i], 86'400 / (10 + i));
    all += fired[i] / 10;
  }
  EXPECT_GT(signalled, 0);
  EXPECT_LE(signalled, all);
  EXPECT_GT(idled, 86'400);
}

TEST(SignalProcessor, InstallsAndForgets) {
  const ChildResult child = RunInChild([] {
    SignalProcessor& signals = SignalProcessor::instance();
    struct sigaction now = {};
    for (const int signal : {SIGUSR1, SIGALRM}) {
      signals.catch_signal(signal);
      raise(signal);
      EXPECT_TRUE(signals.is_pending(signal));
      sigaction(signal, nullptr, &now);
      EXPECT_EQ(now.sa_flags & SA_RESTART, signal == SIGALRM ? 0 : SA_RESTART);
      signals.sleep_till_signal(signal);  // pending already: doesn't wait
      signals.catch_signal(signal);
      EXPECT_FALSE(signals.is_pending(signal));
      raise(signal);
      signals.ignore_signal(signal);
      EXPECT_FALSE(signals.any_pending());
    }
    signals.catch_signal(SIGUSR1);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    raise(SIGUSR1);
    signals.sleep_till_signal(SIGUSR1);
    EXPECT_TRUE(signals.is_pending(SIGUSR1));
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGUSR1), 1) << "the caller's mask is back";
    const std::pair<void (SignalProcessor::*)(int), const char*> refusals[] = {
        {&SignalProcessor::catch_signal, "Unable to install signal handler: Invalid argument"},
        {&SignalProcessor::ignore_signal, "Unable to ignore signal: Invalid argument"},
        {&SignalProcessor::set_default_action, "Unable to set default action on signal: Invalid argument"}};
    for (const auto& row : refusals)
      EXPECT_THAT([&] { (signals.*row.first)(SIGKILL); }, testing::ThrowsMessage<ErrnoError>(row.second));
    EXPECT_EQ(signals._safe_signal(SIGUSR1, SIG_IGN), SignalProcessor::signal_handler);
    signals.set_default_action(SIGTERM);
    raise(SIGTERM);
  });
  EXPECT_EQ(child.signal, SIGTERM) << child.output;
}

}  // namespace
