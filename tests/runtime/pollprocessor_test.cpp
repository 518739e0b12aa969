// What fuzz/pollprocessor_fuzz.cpp, which holds the loop against a model, doesn't reach: extremes, passes within a
// pass, the end of the loop, and the record of signals itself.

#include "runtime/pollprocessor.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/resource.h>

#include <climits>
#include <csignal>
#include <functional>
#include <limits>

#include "emulators/poll_runner.h"
#include "emulators/virtual_time.h"
#include "runtime/errnoexcept.h"
#include "runtime/signalprocessor.h"
#include "tests/support/child_process.h"
#include "tests/support/error_text.h"

namespace {

PollProcessor& loop = PollProcessor::Instance();
SignalProcessor& arrived = SignalProcessor::instance();

struct Timer : PollTimer {
  explicit Timer(int timeout = -1) : PollTimer(timeout, true) {}
  void HandleTimeout() override { ++fired, then(); }
  int fired = 0;
  std::function<void()> then = [] {};
};
struct Signal : PollSignalHandler {
  explicit Signal(int signal) : PollSignalHandler(signal, true) {}
  void HandleSignal(int) override { ++calls; }
  int calls = 0;
};
struct Item : PollItem {
  Item() : PollItem(POLLIN, true) { eventfd_write(fd, 1); }
  ~Item() override { close(fd); }
  int Fileno() const override { return fd; }
  void HandleRead() override { ++calls, eventfd_read(fd, &count), then(); }
  const int fd = eventfd(0, 0);
  eventfd_t count = 0;
  int calls = 0;
  std::function<void()> then = [] {};
};

struct PollLoop : testing::Test {
  PollLoop() { PollPasses(2); }  // past the activity of the test before
  VirtualTime time;
};

TEST_F(PollLoop, WaitsAndDeadlinesHaveNoBounds) {
  Timer timer(INT_MAX);
  timer.AddTimeout(5);
  EXPECT_TRUE(loop.Poll(-1));
  EXPECT_EQ(INT_MAX, time.Elapsed()) << "as long as poll(2) can wait";
  using Limits = std::numeric_limits<time_t>;
  for (const time_t seconds : {time_t{-2'000'000'000}, time_t{2'000'000'000}, Limits::min(), Limits::max()}) {
    const timeval deadline = {seconds, 0};
    timer.SetTimeout(&deadline);
    EXPECT_EQ(seconds < 0, timer.Expiry() <= PollTimer::Now()) << seconds;
  }
  EXPECT_TRUE(std::string(timer.Description()) == "PollTimer" && std::string(Item().Description()) == "PollItem");
}

TEST_F(PollLoop, APassWithinAPassHandsOutWhatIsLeft) {
  Item items[3];
  Timer timers[3];
  for (Timer& timer : timers) timer.SetTimeout(0);
  items[0].then = timers[0].then = [&] {
    items[2].SetRequestedEvents(0);  // the inner one has a shorter array
    loop.Poll(0);
  };
  loop.Poll(0);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(timers[i].fired == 1 && items[i].calls == (i < 2 ? 1 : 0)) << i;
}

TEST_F(PollLoop, WhoDoesNotCountAsRegisteredIsNotCalled) {
  Item item;
  Signal signal(SIGUSR1);
  item.UnRegister(), signal.UnRegister();
  loop.RegisterItem(&item), loop.RegisterSignalHandler(SIGUSR1, &signal);
  raise(SIGUSR1);
  loop.Poll(0);
  EXPECT_TRUE(item.calls == 0 && signal.calls == 0);
  loop.UnRegisterItem(&item), loop.UnRegisterSignalHandler(&signal);
}

TEST_F(PollLoop, ASignalEndsTheWaitAndThePassAndMayEndTheLoop) {
  ExpectInChild([&] {
    for (const int signal : {SIGTERM, SIGINT}) loop.QuitOnSignal(signal);
    for (const int signal : {SIGHUP, SIGPIPE}) loop.IgnoreSignal(signal);
    const Timer timer(50);
    for (const auto& [moment, number] : {std::pair{10, SIGHUP}, {20, SIGPIPE}, {30, SIGINT}})
      time.Schedule(moment, [number = number] { raise(number); });
    for (int i = 1; i <= 3; ++i) {
      EXPECT_EQ(i < 3, loop.Poll(-1));
      EXPECT_EQ(10 * i, time.Elapsed()) << "a dropped signal interrupts too";
    }
    time.Advance(1'000);
    EXPECT_FALSE(loop.Poll(-1)) << "for ever";
    EXPECT_EQ(0, timer.fired) << "no timer any more";
  });
}

bool Blocked(int signal) {
  sigset_t blocked;
  pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  return sigismember(&blocked, signal) == 1;
}

TEST_F(PollLoop, InstallsSignalHandlersAndTellsWhatFailed) {
  ExpectInChild([] {
    for (const int signal : {SIGUSR1, SIGALRM}) {
      struct sigaction now = {};
      arrived.catch_signal(signal);
      raise(signal);
      sigaction(signal, nullptr, &now);
      EXPECT_EQ(now.sa_flags & SA_RESTART, signal == SIGALRM ? 0 : SA_RESTART);
      arrived.sleep_till_signal(signal);  // pending already: doesn't wait
      arrived.ignore_signal(signal);
      EXPECT_TRUE(!arrived.any_pending() && sigaction(signal, nullptr, &now) == 0 && now.sa_handler == SIG_IGN);
      arrived.set_default_action(signal);
      EXPECT_TRUE(sigaction(signal, nullptr, &now) == 0 && now.sa_handler == SIG_DFL);
    }
    for (const int signal : {SIGUSR1, SIGUSR2}) arrived.catch_signal(signal);
    {
      const SignalsBlocked scope;
      for (const int signal : {SIGUSR1, SIGUSR2}) EXPECT_TRUE(Blocked(signal) && raise(signal) == 0);
      arrived.sleep_till_signal(SIGUSR1);
      EXPECT_TRUE(arrived.is_pending(SIGUSR1) && !arrived.is_pending(SIGUSR2) && Blocked(SIGUSR1));
    }
    EXPECT_FALSE(Blocked(SIGUSR1));
    arrived.clear_pending(SIGUSR2);
    EXPECT_TRUE(arrived.is_pending(SIGUSR1) && !arrived.is_pending(SIGUSR2));
    arrived.catch_signal(SIGUSR1);
    EXPECT_FALSE(arrived.any_pending() || arrived.is_pending(-1) || arrived.is_pending(NSIG)) << "caught afresh";
    const std::pair<std::function<void()>, const char*> refusals[] = {
        {[] { arrived.catch_signal(SIGKILL); }, "Unable to install signal handler: Invalid argument"},
        {[] { arrived.ignore_signal(SIGKILL); }, "Unable to ignore signal: Invalid argument"},
        {[] { arrived.set_default_action(SIGKILL); }, "Unable to set default action on signal: Invalid argument"}};
    for (const auto& [act, text] : refusals) EXPECT_EQ(text, ErrorText(act));
    const Item item;
    loop.Poll(0);  // the sanitizer looks at an item's type the first time, and needs a descriptor for that
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);  // poll(2) refuses more records than that
    EXPECT_THROW(loop.Poll(0), ErrnoError);
    setrlimit(RLIMIT_NOFILE, &limit);
  });
}

}  // namespace
