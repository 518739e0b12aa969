#include "runtime/pollprocessor.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <functional>

#include "runtime/errnoexcept.h"
#include "runtime/signalprocessor.h"
#include "tests/support/child_process.h"
#include "tests/support/error_text.h"
#include "tests/support/poll_runner.h"
#include "tests/support/virtual_time.h"

namespace {

PollProcessor& loop = PollProcessor::Instance();
SignalProcessor& arrived = SignalProcessor::instance();
std::string called;  // the names of those who were, in order

// One client of each kind: it tells that it was called, then does what the test asks for.
struct Client {
  std::string name;
  std::function<void()> then = [] {};
  void Called(const std::string& what = {}) {
    called += (called.empty() ? "" : " ") + name + what;
    const auto running = then;  // which may put another in its place
    running();
  }
};
struct Timer : Client, PollTimer {
  explicit Timer(const char* n, int timeout = -1) : Client{n}, PollTimer(timeout, true) {}
  void HandleTimeout() override { Called(); }
};
struct Idle : Client, PollIdleHandler {
  Idle(const char* n, int times) : Client{n}, PollIdleHandler(true), more(times) {}
  bool HandleIdle() override { return Called(), --more > 0; }
  int more;
};
struct Signal : Client, PollSignalHandler {
  Signal(const char* n, int signal) : Client{n}, PollSignalHandler(signal, true) {}
  void HandleSignal(int signal) override { Called(signal == SIGUSR1 ? "1" : "2"); }
};
struct Item : Client, PollItem {
  explicit Item(const char* n) : Client{n}, PollItem(POLLIN, true) {}
  ~Item() override { close(own); }
  int Fileno() const override { return fd; }
  void HandleRead() override { Called(".read"); }
  void HandleWrite() override { Called(".write"); }
  void HandleError() override { Called(".error"); }
  void HandleInvalid() override { Called(".invalid"); }
  void HandleHangUp() override { Called(".hang-up"); }
  void Set() const { EXPECT_EQ(0, eventfd_write(own, 1)); }
  const int own = eventfd(0, 0);
  int fd = own;
};

struct PollLoop : testing::Test {
  PollLoop() { PollPasses(2), called.clear(); }  // past the activity of the test before
  ~PollLoop() noexcept override {}
  static std::string Pass(int timeout = 0) {
    called.clear();
    EXPECT_TRUE(loop.Poll(timeout));
    return called;
  }
  VirtualTime time;
  Item item{"item"}, item2{"item2"};
  Timer timer{"timer"}, timer2{"timer2"};
};

TEST_F(PollLoop, AnItemGetsItsEventsInAFixedOrderUntilItUnregisters) {
  const struct {
    int revents;
    std::string last, calls;  // those after which it unregisters, and all
  } rows[] = {{POLLPRI | POLLIN | POLLHUP, ".read", ".read"},
              {POLLOUT | POLLERR | POLLNVAL, ".write .error", ".write .error"},
              {POLLPRI | POLLIN | POLLERR | POLLHUP | POLLNVAL, "", ".read .read .error .hang-up .invalid"},
              {POLLRDHUP | POLLRDNORM, "", ""}};
  item.name = "";
  for (const auto& row : rows) {
    item.Register();
    item.then = [&] { called == row.last ? item.UnRegister() : void(); };
    item.HandleEvents(static_cast<short>(row.revents));
    EXPECT_EQ(row.calls, std::exchange(called, {}));
  }
}

// What the handler of the first item does to the others, whose records of the same poll call are still to come.
TEST_F(PollLoop, RecordsAreMatchedToItemsAtTheMomentOfTheCall) {
  Item heir("heir"), twin("twin");
  for (const Item* each : {&item, &item2}) each->Set();
  item.then = [&] { item2.UnRegister(); };
  EXPECT_EQ("item.read", Pass()) << "a stale record finds nobody";
  item2.Register();
  heir.UnRegister();
  heir.fd = item2.own;
  item.then = [&] { item2.UnRegister(), heir.Register(); };
  EXPECT_EQ("item.read heir.read", Pass()) << "the stale record finds the descriptor's new owner";
  item.then = [] {};
  Pass();
  twin.fd = item.own;
  twin.SetRequestedEvents(POLLIN);  // the present ones
  EXPECT_EQ("item.read heir.read", Pass()) << "nobody has told";
  loop.EventChange();
  EXPECT_EQ("item.read item.read heir.read", Pass()) << "the first registered gets both";
  item.then = [&] {
    item.then = [] {};
    heir.SetRequestedEvents(0);
    loop.Poll(0);  // a pass within the pass, over a shorter array
  };
  EXPECT_EQ("item.read item.read item.read", Pass());
}

TEST_F(PollLoop, TheNextExpiryShortensTheWait) {
  const struct {
    int expiry, less;    // from now: milliseconds less nanoseconds
    int timeout, slept;  // milliseconds
  } rows[] = {{500, 0, 0, 0},    {500, 0, 100, 100}, {500, 0, 1'000, 500},
              {501, 1, -1, 500}, {1, 1, -1, 0},      {INT_MAX, 0, -1, INT_MAX}};
  for (const auto& row : rows) {
    timer.SetTimeout(row.expiry);
    if (row.expiry == INT_MAX) timer.AddTimeout(5);  // more than poll(2) can wait
    time.AdvanceNanoseconds(row.less);
    const int64_t before = time.Elapsed();
    EXPECT_EQ("", Pass(row.timeout));
    EXPECT_EQ(row.slept, time.Elapsed() - before) << row.expiry << ", " << row.timeout;
  }
}

TEST_F(PollLoop, OnlyARegisteredTimerIsArmedAndWallClockMomentsBecomeWholeMilliseconds) {
  timeval deadline = {};
  timer.UnRegister();
  timer.SetTimeout(10), timer.AddTimeout(10), timer.SetTimeout(&deadline);
  timer.Register();
  EXPECT_FALSE(timer.IsActive());
  const struct {
    int64_t seconds;
    int microseconds, expiry;  // milliseconds from now
  } rows[] = {{2, 0, 2'000}, {1, 500'999, 1'500}, {0, 999, 0}, {-1, 999'999, 0}, {-3'000'000'000, 0, 0}};
  for (const auto& row : rows) {
    deadline = {static_cast<time_t>(VirtualTime::kDefaultWall + row.seconds), row.microseconds};
    timer.SetTimeout(&deadline);
    EXPECT_EQ(row.expiry * int64_t{1'000'000}, timer.Expiry() - PollTimer::Now()) << row.seconds;
    timer.SetTimeout(nullptr);
    EXPECT_FALSE(timer.IsActive());
    timer.AddTimeout(5);
    EXPECT_TRUE(timer.IsActive() && timer.Expiry() == PollTimer::Now() + (row.expiry + 5) * int64_t{1'000'000});
    timer.AddTimeout(-1);
    EXPECT_FALSE(timer.IsActive());
  }
}

TEST_F(PollLoop, ATimerOfTheSamePassCanStillBeStopped) {
  const std::pair<std::function<void()>, const char*> rows[] = {{[] {}, "timer timer2 |"},
                                                                {[&] { timer2.UnRegister(); }, "timer |"},
                                                                {[&] { timer2.SetTimeout(-1); }, "timer |"},
                                                                {[&] { timer2.SetTimeout(30); }, "timer | timer2"}};
  for (const auto& [stop, calls] : rows) {
    timer2.Register();
    for (Timer* each : {&timer, &timer2}) each->SetTimeout(0);
    timer.then = stop;
    PollFor(29);
    called += " |";
    PollFor(1);
    EXPECT_EQ(calls, std::exchange(called, {}));
  }
}

TEST_F(PollLoop, APeriodDoesNotDriftOverADayHoweverLateItsCallsCome) {
  timer.SetTimeout(1'000);
  const int64_t armed = timer.Expiry();
  int fired = 0;
  timer.then = [&] {
    timer.AddTimeout(1'000);
    if (++fired % 100 == 0) time.Advance(2'500);
  };
  PollFor(86'400'000);
  EXPECT_TRUE(fired == 86'400 && timer.Expiry() - armed == 86'400 * int64_t{1'000'000'000}) << fired;
}

TEST_F(PollLoop, AnExceptionReachesTheHostAndLosesNoWork) {
  Signal signal("signal", SIGUSR1), other("other", SIGUSR1);
  Idle idle("idle", 1), idle2("idle2", 1);
  const struct {
    Client& failing;
    std::function<void()> wake;
    const char* next;  // pass, in which nothing new is due
  } rows[] = {{timer, [&] { timer.SetTimeout(0), timer2.SetTimeout(0); }, "timer2 idle idle2"},
              {idle, [&] { timer.SetTimeout(0); }, "idle idle2"},
              {signal, [] { raise(SIGUSR1); }, "other1"},
              {item, [&] { item.Set(); }, "item.read"}};
  for (const auto& row : rows) {
    row.failing.then = [&] {
      row.failing.then = [] {};
      throw std::runtime_error("handler");
    };
    row.wake();
    EXPECT_EQ("handler", ErrorText([] { loop.Poll(0); })) << row.next;
    EXPECT_EQ(row.next, Pass());
  }
}

TEST_F(PollLoop, APassHasItsOrderAndIdleWorkKeepsItFromWaiting) {
  Idle a("a", 2), b("b", 1);
  const Signal signal("signal", SIGUSR1);
  item.then = [&, count = eventfd_t{}]() mutable { eventfd_read(item.own, &count); };
  const struct {
    std::function<void()> activity;
    const char* passes[5];  // what each called
    int sleeps;             // of the five
  } rows[] = {
      {[] {}, {"a b", "a", "", "", ""}, 3},
      {[&] { timer.SetTimeout(0); }, {"timer a b", "a", "a", "", ""}, 2},
      {[] { raise(SIGUSR1); }, {"signal1", "", "", "", ""}, 5},
      {[&] { item.Set(), timer.SetTimeout(0), raise(SIGUSR1); }, {"signal1 timer item.read", "a b", "a", "a", ""}, 1}};
  for (const auto& row : rows) {
    row.activity();
    const int sleeps = time.Sleeps();
    for (const char* calls : row.passes) EXPECT_EQ(calls, Pass(100)) << &row - rows;
    EXPECT_EQ(row.sleeps, time.Sleeps() - sleeps) << &row - rows;
    a.more = 3;
  }
  a.then = [&] { b.UnRegister(); };
  timer.SetTimeout(0);
  EXPECT_EQ("timer a", Pass()) << "b was picked, and struck out";
}

TEST_F(PollLoop, SignalsAreDeliveredOnceInAscendingOrderToWhoIsStillThere) {
  Signal two("x", SIGUSR2), one("y", SIGUSR1), twice("z", SIGUSR1);
  for (const int signal : {SIGUSR1, SIGUSR2}) twice.Register(signal);
  for (const int signal : {SIGUSR2, SIGUSR1, SIGUSR1}) raise(signal);
  EXPECT_EQ("y1 z1 z1 x2 z2", Pass());
  one.then = [&] {
    twice.UnRegister();
    raise(SIGUSR1);  // while it is being delivered: the next pass
  };
  for (const int signal : {SIGUSR1, SIGUSR2}) raise(signal);
  EXPECT_EQ("y1 x2", Pass());
  one.UnRegister();
  EXPECT_TRUE(Pass().empty() && !arrived.any_pending()) << "taken, and delivered to nobody";
}

TEST_F(PollLoop, ASignalEndsTheWaitAndThePassAndMayEndTheLoop) {
  const auto child = RunInChild([&] {
    for (const int signal : {SIGTERM, SIGINT}) loop.QuitOnSignal(signal);
    loop.IgnoreSignal(SIGHUP);
    const Signal signal("signal", SIGUSR1);
    timer.SetTimeout(50);
    for (const auto& [moment, number] : {std::pair{10, SIGHUP}, {20, SIGUSR1}, {30, SIGINT}})
      time.Schedule(moment, [number = number] { raise(number); });
    for (int i = 1; i <= 3; ++i) {
      EXPECT_EQ(i < 3, loop.Poll(-1));
      EXPECT_EQ(10 * i, time.Elapsed()) << "a dropped signal interrupts too";
    }
    time.Advance(1'000);
    EXPECT_FALSE(loop.Poll(-1)) << "for ever";
    EXPECT_EQ("signal1", called) << "no timer any more";
  });
  EXPECT_EQ(0, child.exit_status) << child.output;
}

TEST_F(PollLoop, InstallsSignalHandlersAndTellsWhatFailed) {
  const auto child = RunInChild([] {
    for (const int signal : {SIGUSR1, SIGALRM}) {
      struct sigaction now = {};
      arrived.catch_signal(signal);
      raise(signal);
      sigaction(signal, nullptr, &now);
      EXPECT_EQ(now.sa_flags & SA_RESTART, signal == SIGALRM ? 0 : SA_RESTART);
      arrived.sleep_till_signal(signal);  // pending already: doesn't wait
      arrived.ignore_signal(signal);
      EXPECT_FALSE(arrived.any_pending());
    }
    sigset_t blocked = {};
    sigaddset(&blocked, SIGUSR1);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    for (const int signal : {SIGUSR1, SIGUSR2}) arrived.catch_signal(signal), raise(signal);
    arrived.sleep_till_signal(SIGUSR1);
    arrived.clear_pending(SIGUSR2);
    EXPECT_TRUE(arrived.is_pending(SIGUSR1) && !arrived.is_pending(SIGUSR2));
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(1, sigismember(&blocked, SIGUSR1)) << "the caller's mask is back";
    const std::pair<std::function<void()>, const char*> refusals[] = {
        {[] { arrived.catch_signal(SIGKILL); }, "Unable to install signal handler: Invalid argument"},
        {[] { arrived.ignore_signal(SIGKILL); }, "Unable to ignore signal: Invalid argument"},
        {[] { arrived.set_default_action(SIGKILL); }, "Unable to set default action on signal: Invalid argument"}};
    for (const auto& [act, text] : refusals) EXPECT_EQ(text, ErrorText(act));
    arrived.set_default_action(SIGTERM);
    const rlimit none = {};
    setrlimit(RLIMIT_NOFILE, &none);  // poll(2) refuses more records than that
    EXPECT_THROW(loop.Poll(0), ErrnoError);
    raise(SIGTERM);
  });
  EXPECT_EQ(SIGTERM, child.signal) << child.output;
}

}  // namespace
