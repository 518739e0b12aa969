// The poll loop beside a model of it: both get the same clients, whose handlers do the same things, and must make the
// same calls in the same order, wait as long, and leave the same timers armed.
//
// The input is a list of operations, one byte each with its operands behind it. Time is virtual; descriptors and
// signals are real.

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <limits>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "emulators/virtual_time.h"
#include "runtime/pollprocessor.h"
#include "runtime/signalprocessor.h"

namespace {

enum Kind { kItem, kTimer, kIdle, kSignal, kKinds };
constexpr int kSlots = 3;  // clients of each kind
constexpr int kSignals[] = {SIGUSR1, SIGUSR2};
constexpr int64_t kMilli = 1'000'000;

// Descriptors by their place in this list: two events, a pipe with data whose other end is closed, a pipe that nobody
// reads, one that isn't open, and none.
enum Descriptor { kEvent, kEvent2, kHungUp, kBroken, kInvalid, kNone, kDescriptors };

struct Action {
  uint8_t what = 0;   // operation and slot
  uint8_t value = 0;  // the operation's own
};

// What the loop and its model have in common: the scripts of the clients, and what can be done to them.
class World {
 public:
  World() = default;
  World(const World&) = default;
  virtual ~World() = default;

  std::string calls;  // since the last pass
  std::deque<Action> scripts[kKinds][kSlots];
  int more[kSlots] = {};  // how often an idle handler will answer true

  void Do(Action action) {
    const int slot = action.what / 16 % kSlots, value = action.value;
    const auto kind = static_cast<Kind>(value % kKinds);
    switch (action.what % 16) {
      case 0:
        Create(kind, slot, (value & 8) != 0);
        break;
      case 1:
        if (_running == std::pair(kind, slot) && kind != kTimer)  // has to outlive its own call
          UnRegister(kind, slot);
        else
          Destroy(kind, slot);
        break;
      case 2:
        if (Alive(kind, slot)) Register(kind, slot, value / 4 % 2);
        break;
      case 3:
        if (Alive(kind, slot)) UnRegister(kind, slot);
        break;
      case 4:
      case 5:
        if (Alive(kTimer, slot)) SetTimeout(slot, value % 8 - 1);
        break;
      case 6:
      case 7:
        if (Alive(kTimer, slot)) AddTimeout(slot, value % 8 - 1);
        break;
      case 8:
        if (Alive(kTimer, slot)) SetDeadline(slot, (value - 100) * (kMilli / 10), value == 0);
        break;
      case 9:
        if (Alive(kItem, slot)) SetEvents(slot, static_cast<short>(value & (POLLIN | POLLOUT)));
        break;
      case 10:
        if (Alive(kItem, slot)) SetDescriptor(slot, static_cast<Descriptor>(value % kDescriptors), value >= 128);
        break;
      case 11:
        Raise(value % 2);
        break;
      case 12:
        Advance(value * (kMilli / 10));
        break;
      case 13:
        SetEvent(value % 2, value % 4 >= 2);
        break;
      case 14:
        more[slot] = value % 4;
        break;
      default:
        if (_running != kNobody) throw std::runtime_error("handler");
    }
  }

  void Called(Kind kind, int slot, char what = ' ') {
    calls += {"idps"[kind], static_cast<char>('0' + slot), what};
    auto& script = scripts[kind][slot];
    if (script.empty()) return;
    const Action action = script.front();
    script.pop_front();
    _running = {kind, slot};
    Do(action);
    _running = kNobody;
  }
  bool Idle(int slot) {
    Called(kIdle, slot);
    return more[slot]-- > 0;
  }
  // Whether it threw.
  template <class Step>
  bool Run(Step step) {
    bool threw = false;
    calls.clear();
    try {
      step(*this);
    } catch (const std::runtime_error&) {
      threw = true;
    }
    _running = kNobody;
    return threw;
  }

  virtual void RunPass(int timeout) = 0;
  virtual int RunTimers(int timeout) = 0;
  virtual bool Alive(Kind kind, int slot) = 0;
  virtual void Create(Kind kind, int slot, bool registered) = 0;
  virtual void Destroy(Kind kind, int slot) = 0;
  virtual void Register(Kind kind, int slot, int signal) = 0;
  virtual void UnRegister(Kind kind, int slot) = 0;
  virtual void SetTimeout(int slot, int timeout) = 0;
  virtual void AddTimeout(int slot, int timeout) = 0;
  virtual void SetDeadline(int slot, int64_t distance, bool null) = 0;  // nanoseconds from now on the wall clock
  virtual void SetEvents(int slot, short events) = 0;
  virtual void SetDescriptor(int slot, Descriptor descriptor, bool tell) = 0;
  virtual void Dispatch(int slot, short revents) = 0;
  virtual void Raise(int signal) = 0;
  virtual void Advance(int64_t nanoseconds) = 0;
  virtual void SetEvent(int event, bool ready) = 0;

 private:
  static constexpr std::pair<Kind, int> kNobody = {kItem, -1};
  std::pair<Kind, int> _running = kNobody;  // the client whose handler runs
};

class Real : public World {
 public:
  Real() {
    for (const int signal : kSignals) SignalProcessor::instance().catch_signal(signal);  // and forgets its mark
    PollProcessor::Instance().Poll(0);  // past the activity of the input before
    for (int event = 0; event < 2; ++event) SetEvent(event, false);
  }

  VirtualTime time;

  const PollTimer& Timer(int slot) const { return *_timers[slot]; }

  void RunPass(int timeout) override {
    if (!PollProcessor::Instance().Poll(timeout)) std::abort();
  }
  int RunTimers(int timeout) override { return PollProcessor::Instance().RunTimers(timeout); }
  bool Alive(Kind kind, int slot) override {
    bool alive = false;
    On(kind, slot, [&alive](auto& client) { alive = client != nullptr; });
    return alive;
  }
  void Create(Kind kind, int slot, bool registered) override {
    On(kind, slot, [&]<class Client>(std::unique_ptr<Client>& client) {
      if (!client) client = std::make_unique<Client>(*this, slot, registered);
    });
  }
  void Destroy(Kind kind, int slot) override {
    On(kind, slot, [](auto& client) { client.reset(); });
  }
  void Register(Kind kind, int slot, int signal) override {
    On(kind, slot, [signal](auto& client) {
      if constexpr (requires { client->Register(signal); })
        client->Register(kSignals[signal]);
      else
        client->Register();
    });
  }
  void UnRegister(Kind kind, int slot) override {
    On(kind, slot, [](auto& client) { client->UnRegister(); });
  }
  void SetTimeout(int slot, int timeout) override { _timers[slot]->SetTimeout(timeout); }
  void AddTimeout(int slot, int timeout) override { _timers[slot]->AddTimeout(timeout); }
  void SetDeadline(int slot, int64_t distance, bool null) override {
    timeval now = {};
    gettimeofday(&now, nullptr);
    const int64_t moment = now.tv_sec * int64_t{1'000'000} + now.tv_usec + distance / 1'000;
    const timeval deadline = {static_cast<time_t>(moment / 1'000'000), static_cast<suseconds_t>(moment % 1'000'000)};
    _timers[slot]->SetTimeout(null ? nullptr : &deadline);
  }
  void SetEvents(int slot, short events) override { _items[slot]->SetRequestedEvents(events); }
  void SetDescriptor(int slot, Descriptor descriptor, bool tell) override {
    _items[slot]->descriptor = descriptor;
    if (tell) PollProcessor::Instance().EventChange();
  }
  void Dispatch(int slot, short revents) override { _items[slot]->HandleEvents(revents); }
  void Raise(int signal) override { std::raise(kSignals[signal]); }
  void Advance(int64_t nanoseconds) override { time.AdvanceNanoseconds(nanoseconds); }
  void SetEvent(int event, bool ready) override {
    eventfd_t count;
    eventfd_read(Number(static_cast<Descriptor>(event)), &count);
    if (ready) eventfd_write(Number(static_cast<Descriptor>(event)), 1);
  }

 private:
  static int Number(Descriptor descriptor) {
    static const auto numbers = [] {
      int hung_up[2], broken[2];
      if (pipe(hung_up) != 0 || pipe(broken) != 0 || write(hung_up[1], "x", 1) != 1) std::abort();
      close(hung_up[1]);
      close(broken[0]);
      return std::vector<int>{eventfd(0, EFD_NONBLOCK), eventfd(0, EFD_NONBLOCK), hung_up[0], broken[1], 1'000'000, -1};
    }();
    return numbers[descriptor];
  }

  struct Item : PollItem {
    Item(World& w, int s, bool registered) : PollItem(POLLIN, registered), world(w), slot(s) {}
    int Fileno() const override { return Number(descriptor); }
    void HandleRead() override { world.Called(kItem, slot, 'r'); }
    void HandleWrite() override { world.Called(kItem, slot, 'w'); }
    void HandleError() override { world.Called(kItem, slot, 'e'); }
    void HandleHangUp() override { world.Called(kItem, slot, 'h'); }
    void HandleInvalid() override { world.Called(kItem, slot, 'i'); }
    World& world;
    const int slot;
    Descriptor descriptor = kEvent;
  };
  struct Timer_ : PollTimer {
    Timer_(World& w, int s, bool registered) : PollTimer(2, registered), world(w), slot(s) {}
    void HandleTimeout() override { world.Called(kTimer, slot); }
    World& world;
    const int slot;
  };
  struct Idle_ : PollIdleHandler {
    Idle_(World& w, int s, bool registered) : PollIdleHandler(registered), world(w), slot(s) {}
    bool HandleIdle() override { return world.Idle(slot); }
    World& world;
    const int slot;
  };
  struct Signal : PollSignalHandler {
    Signal(World& w, int s, bool registered) : PollSignalHandler(kSignals[0], registered), world(w), slot(s) {}
    void HandleSignal(int signal) override { world.Called(kSignal, slot, signal == kSignals[0] ? '1' : '2'); }
    World& world;
    const int slot;
  };

  template <class Act>
  void On(Kind kind, int slot, Act act) {
    if (kind == kItem) act(_items[slot]);
    if (kind == kTimer) act(_timers[slot]);
    if (kind == kIdle) act(_idle[slot]);
    if (kind == kSignal) act(_signals[slot]);
  }

  std::unique_ptr<Item> _items[kSlots];
  std::unique_ptr<Timer_> _timers[kSlots];
  std::unique_ptr<Idle_> _idle[kSlots];
  std::unique_ptr<Signal> _signals[kSlots];
};

// Plain and slow: clients are slots, lists are lists of slots.
class Model : public World {
 public:
  using List = std::deque<int>;

  struct Timer {
    bool active = false;
    int64_t expiry = 0;
  };

  explicit Model(int64_t start) : now(start) {}

  int64_t now;
  std::set<std::pair<int64_t, int>> scheduled;  // moments and signals
  Timer timers[kSlots];
  bool registered[kKinds][kSlots] = {};
  bool endless = false;  // the last pass would have waited for ever

  bool Alive(Kind kind, int slot) override { return _alive[kind][slot]; }
  void Create(Kind kind, int slot, bool reg) override {
    if (_alive[kind][slot]) return;
    _alive[kind][slot] = true;
    if (kind == kItem) _events[slot] = POLLIN, _descriptor[slot] = kEvent;
    if (kind == kTimer) timers[slot] = {};
    if (kind == kIdle) _done[slot] = false;
    if (reg) Register(kind, slot, 0);
    if (kind == kTimer) SetTimeout(slot, 2);
  }
  void Destroy(Kind kind, int slot) override {
    UnRegister(kind, slot);
    _alive[kind][slot] = false;
  }
  void Register(Kind kind, int slot, int signal) override {
    if (kind == kSignal) {
      _pending.erase(signal);
      _handlers[signal].push_back(slot);
    } else if (!registered[kind][slot]) {
      _lists[kind].push_back(slot);
      if (kind == kItem) _rebuild = true;
      if (kind == kIdle) _idle_done = false;
    }
    registered[kind][slot] = true;
  }
  void UnRegister(Kind kind, int slot) override {
    if (!registered[kind][slot]) return;
    registered[kind][slot] = false;
    std::erase(_lists[kind], slot);
    if (kind == kItem) _rebuild = true;
    if (kind == kTimer) timers[slot].active = false, std::erase(_expired, slot);
    if (kind == kIdle) std::erase(_idle_work, slot);
    if (kind == kSignal) {
      for (List& handlers : _handlers) std::erase(handlers, slot);
      std::erase_if(_signal_work, [slot](const auto& picked) { return picked.first == slot; });
    }
  }
  void SetTimeout(int slot, int timeout) override {
    if (timeout < 0)
      timers[slot].active = false;
    else if (registered[kTimer][slot])
      timers[slot] = {true, now + timeout * kMilli};
  }
  void AddTimeout(int slot, int timeout) override {
    if (timeout < 0)
      timers[slot].active = false;
    else if (registered[kTimer][slot])
      timers[slot] = {true, timers[slot].expiry + timeout * kMilli};
  }
  void SetDeadline(int slot, int64_t distance, bool null) override {
    // The moment has whole microseconds, of a wall clock whose seconds began with those of the monotonic one.
    distance = distance / 1'000 * 1'000 - now % 1'000;
    if (null)
      timers[slot].active = false;
    else if (registered[kTimer][slot])
      timers[slot] = {true, now + (distance < 0 ? 0 : distance / kMilli * kMilli)};
  }
  void SetEvents(int slot, short events) override {
    if (_events[slot] != events) _rebuild = true;
    _events[slot] = events;
  }
  void SetDescriptor(int slot, Descriptor descriptor, bool tell) override {
    _descriptor[slot] = descriptor;
    if (tell) _rebuild = true;
  }
  void Dispatch(int slot, short revents) override {
    const std::pair<int, const char*> order[] = {{POLLPRI, "r"}, {POLLIN, "r"},  {POLLOUT, "w"},
                                                 {POLLERR, "e"}, {POLLHUP, "h"}, {POLLNVAL, "i"}};
    for (const auto& [bit, what] : order)
      if ((revents & bit) != 0 && registered[kItem][slot]) Called(kItem, slot, *what);
  }
  void Raise(int signal) override { _pending.insert(signal); }
  void Advance(int64_t nanoseconds) override { now += nanoseconds; }
  void SetEvent(int event, bool ready) override { _ready[event] = ready; }

  void RunPass(int timeout) override {
    endless = false;
    RunSignals();
    timeout = RunTimers(timeout);
    if (_rebuild) {
      _array.clear();
      for (const int slot : _lists[kItem])
        if (_descriptor[slot] != kNone && _events[slot] != 0) _array.push_back({_descriptor[slot], _events[slot], 0});
      _rebuild = false;
    }
    if (!_idle_done) timeout = 0;
    bool any = false;
    for (Record& record : _array) any = (record.revents = Revents(record)) != 0 || any;
    if (any)
      RunEvents();
    else if (!Sleep(timeout))
      RunIdle();
    else
      RunSignals();
  }
  int RunTimers(int timeout) override {
    if (_lists[kTimer].empty()) return timeout;
    const int64_t start = now;
    int64_t next = std::numeric_limits<int64_t>::max();
    const auto consider = [&](int slot) {
      if (timers[slot].active && registered[kTimer][slot]) next = std::min(next, timers[slot].expiry);
    };
    for (const int slot : _lists[kTimer])
      if (timers[slot].active && start >= timers[slot].expiry)
        _expired.push_back(slot);
      else
        consider(slot);
    while (!_expired.empty()) {
      const int slot = Front(_expired);
      if (timers[slot].active && start >= timers[slot].expiry) {
        timers[slot].active = false;
        Called(kTimer, slot);
        Activity();
      }
      consider(slot);
    }
    if (next == std::numeric_limits<int64_t>::max()) return timeout;
    const int64_t remaining = std::max<int64_t>((next - now) / kMilli, 0);
    return static_cast<int>(timeout < 0 || timeout > remaining ? remaining : timeout);
  }

 private:
  struct Record {
    Descriptor descriptor;
    short events, revents;
  };

  short Revents(const Record& record) const {
    const int shown[] = {POLLOUT | (_ready[0] ? POLLIN : 0), POLLOUT | (_ready[1] ? POLLIN : 0), POLLIN, POLLOUT, 0};
    const int always[] = {0, 0, POLLHUP, POLLERR, POLLNVAL};
    return static_cast<short>((shown[record.descriptor] & record.events) | always[record.descriptor]);
  }
  // True when a signal ended it.
  bool Sleep(int timeout) {
    if (timeout == 0) return false;
    endless = timeout < 0 && scheduled.empty();
    if (endless) return false;
    const int64_t end = timeout < 0 ? std::numeric_limits<int64_t>::max() : now + timeout * kMilli;
    if (scheduled.empty() || scheduled.begin()->first > end) return now = end, false;
    now = std::max(now, scheduled.begin()->first);
    for (; !scheduled.empty() && scheduled.begin()->first <= now; scheduled.erase(scheduled.begin()))
      _pending.insert(scheduled.begin()->second);
    return true;
  }
  void Activity() { _idle_started = _idle_done = false; }

  template <class Type>
  static Type Front(std::deque<Type>& list) {
    const Type first = list.front();
    list.pop_front();
    return first;
  }

  void RunSignals() {
    for (int signal = 0; signal < 2; ++signal)
      if (_pending.erase(signal) != 0)
        for (const int slot : _handlers[signal]) _signal_work.push_back({slot, signal});
    while (!_signal_work.empty()) {
      const auto [slot, signal] = Front(_signal_work);
      Called(kSignal, slot, signal == 0 ? '1' : '2');
    }
  }
  void RunEvents() {
    for (size_t i = 0; i < _array.size(); ++i) {
      if (_array[i].revents == 0) continue;
      for (const int slot : _lists[kItem]) {
        if (_descriptor[slot] != _array[i].descriptor) continue;
        Dispatch(slot, _array[i].revents);
        Activity();
        break;
      }
    }
  }
  void RunIdle() {
    _idle_work.clear();
    for (const int slot : _lists[kIdle]) {
      if (!_idle_started) _done[slot] = false;
      if (!_done[slot]) _idle_work.push_back(slot);
    }
    _idle_started = true;
    bool any = false;
    while (!_idle_work.empty()) {
      const int slot = Front(_idle_work);
      _done[slot] = !Idle(slot);
      any = any || !_done[slot];
    }
    _idle_done = !any;
  }

  bool _alive[kKinds][kSlots] = {};
  List _lists[kKinds];
  List _handlers[2];
  short _events[kSlots] = {};
  Descriptor _descriptor[kSlots] = {};
  bool _done[kSlots] = {};
  bool _ready[2] = {};
  std::set<int> _pending;
  std::vector<Record> _array;
  bool _rebuild = false, _idle_started = true, _idle_done = true;
  List _expired, _idle_work;
  std::deque<std::pair<int, int>> _signal_work;
};

class Input {
 public:
  Input(const uint8_t* data, size_t size) : _at(data), _end(data + size) {}
  bool Empty() const { return _at == _end; }
  uint8_t Byte() { return Empty() ? 0 : *_at++; }
  Action Next() {
    const uint8_t what = Byte();
    return {what, Byte()};
  }

 private:
  const uint8_t* _at;
  const uint8_t* const _end;
};

void Require(bool holds) {
  if (!holds) std::abort();
}

template <class Step>
void Compare(Real& real, Model& model, Step step) {
  const bool threw = model.Run(step);
  Require(real.Run(step) == threw);
  Require(real.calls == model.calls);
}

void ComparePass(Real& real, Model& model, int timeout) {
  real.time.spins = 0;  // none is granted time
  if (timeout < 0) {
    Model trial = model;
    trial.Run([timeout](World& world) { world.RunPass(timeout); });
    if (trial.endless) timeout = 20;
  }
  Compare(real, model, [timeout](World& world) { world.RunPass(timeout); });
  Require(real.time.monotonic == model.now);
  for (int slot = 0; slot < kSlots; ++slot) {
    if (!model.Alive(kTimer, slot)) continue;
    const PollTimer& timer = real.Timer(slot);
    Require(timer.IsRegistered() == model.registered[kTimer][slot]);
    Require(timer.IsActive() == model.timers[slot].active && timer.Expiry() == model.timers[slot].expiry);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr int kTimeouts[] = {0, 1, 3, 10, 100, -1};
  Input input(data, size);
  Real real;
  Model model(real.time.monotonic);
  while (!input.Empty()) {
    const uint8_t operation = input.Byte();
    const int operand = operation / 8;
    switch (operation % 8) {
      case 0:
      case 1:
      case 2: {
        const Action action = input.Next();
        Compare(real, model, [action](World& world) { world.Do(action); });
        break;
      }
      case 3:
      case 4: {
        const Action action = input.Next();
        Compare(real, model, [action, operand](World& world) {
          world.scripts[operand % kKinds][operand / kKinds % kSlots].push_back(action);
        });
        break;
      }
      case 5: {
        const uint8_t byte = input.Byte();
        const int slot = operand % 4, moment = byte % 16, signal = operand % 2;
        if (slot < kSlots && real.Alive(kItem, slot))
          Compare(real, model, [=](World& world) { world.Dispatch(slot, static_cast<short>(byte & 63)); });
        else if (model.scheduled.insert({model.now + moment * kMilli, signal}).second)
          real.time.Schedule(moment, [signal] { std::raise(kSignals[signal]); });
        break;
      }
      case 6: {
        int waits[2], *wait = waits;
        Compare(real, model, [&wait, operand](World& world) { *wait++ = world.RunTimers(operand - 1); });
        Require(wait != waits + 2 || waits[0] == waits[1]);
        break;
      }
      default:
        ComparePass(real, model, kTimeouts[operand % 6]);
    }
  }
  for (const int timeout : {3, 0, 10}) ComparePass(real, model, timeout);
  return 0;
}
