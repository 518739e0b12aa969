// The process-wide poll loop and the four kinds of clients that it wakes.
//
// One call of PollProcessor::Poll is one pass: deliver pending signals, fire due timers, wait in poll(2), then either
// hand out descriptor events or do idle work. The host calls Poll until it returns false. docs/poll-loop.md tells the
// phases in order.
//
// Thread: everything here lives on one thread and takes no lock. Only the marks in SignalProcessor are touched from
// an asynchronous signal handler.
//
// Ownership: the loop keeps plain pointers and owns no client. A client unregisters in its destructor, so every
// client must be destroyed before the loop, which ends at process exit: an object of static storage that is older
// than the first call of Instance() must not be a client.
//
// Callbacks: a handler may register, unregister, re-arm and change any client, itself included, and an unregistered
// client is not called again in that pass. The client whose handler is running must stay alive until the call has
// returned; any other one may be destroyed. (A timer, and an item in its HandleEvents, may go as the handler's last
// act.) An exception leaves Poll and reaches the host; the loop stays usable, and what was picked and not reached is
// taken up: signals, timers and events in the next pass, idle work in the next quiet one.
//
// The destructors of the bases may throw because a derived class may have to report a failing close from its own.

#pragma once

#include <poll.h>
#include <sys/time.h>

#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

class PollProcessor;

// A descriptor. Derived classes supply Fileno and override the handlers they need; the defaults do nothing, except
// that urgent data reads like other data.
class PollItem {
 public:
  PollItem(const PollItem&) = delete;
  PollItem& operator=(const PollItem&) = delete;
  virtual ~PollItem() noexcept(false);

  // The descriptor, or negative when there is none: the item then stays registered and is not polled. Called anew in
  // each look-up, so it must be cheap and must not throw. After a change call PollProcessor::EventChange.
  virtual int Fileno() const = 0;

  // Calls the handlers for the bits of poll(2) in `revents`: urgent read, read, write, error, hang-up, invalid. Ends
  // as soon as a handler has unregistered the item.
  virtual void HandleEvents(short revents);
  virtual void HandleRead();
  virtual void HandleUrgentRead();
  virtual void HandleWrite();
  virtual void HandleError();
  virtual void HandleInvalid();
  virtual void HandleHangUp();
  virtual const char* Description() const;

  void Register();
  void UnRegister();
  bool IsRegistered() const { return _registered; }

  // `events`: POLLIN and so on; 0 takes the item out of the poll call and leaves it registered.
  void SetRequestedEvents(short events);
  short RequestedEvents() const { return _events; }

 protected:
  PollItem(short events, bool reg);

 private:
  int16_t _events;
  bool _registered = false;
};

// A deadline on the monotonic clock. One-shot: it is disarmed just before HandleTimeout, which may arm it again; with
// AddTimeout there the period doesn't drift. Never fires early.
class PollTimer {
 public:
  PollTimer(const PollTimer&) = delete;
  PollTimer& operator=(const PollTimer&) = delete;
  virtual ~PollTimer() noexcept(false);

  virtual void HandleTimeout() = 0;
  virtual const char* Description() const;

  void Register();
  void UnRegister();  // disarms too
  bool IsRegistered() const { return _registered; }

  // An unregistered timer can be disarmed but not armed: it ignores a timeout of zero or more, and stays as it is.

  // Milliseconds from now; negative disarms.
  void SetTimeout(int timeout);
  // A moment of the wall clock, turned at once into whole milliseconds from now: later steps of the wall clock don't
  // move the deadline. A moment in the past is due now. nullptr disarms.
  void SetTimeout(const timeval* deadline);
  // Milliseconds added to the present expiry, whether that lies ahead or past; it is 0 for a timer that was never
  // armed. Arms a disarmed timer too; negative disarms.
  void AddTimeout(int timeout);

  bool IsActive() const { return _active; }
  // Nanoseconds on the monotonic clock; 0 until the timer is armed for the first time.
  int64_t Expiry() const { return _expiry; }

  // Nanoseconds on the monotonic clock.
  static int64_t Now();

 protected:
  // Registers first, then calls SetTimeout(timeout), which therefore has no effect when `reg` is false.
  PollTimer(int timeout, bool reg);

 private:
  friend class PollProcessor;

  void _Arm(int64_t expiry);
  void _Disarm();

  int64_t _expiry = 0;
  bool _registered = false;
  bool _active = false;
};

// Work for quiet moments.
class PollIdleHandler {
 public:
  PollIdleHandler(const PollIdleHandler&) = delete;
  PollIdleHandler& operator=(const PollIdleHandler&) = delete;
  virtual ~PollIdleHandler() noexcept(false);

  // True: there is more work, call again in the next quiet pass. While any handler answers true the loop doesn't
  // block. After false the next call comes only after a timer has fired or an item has had an event.
  virtual bool HandleIdle() = 0;
  virtual const char* Description() const;

  void Register();
  void UnRegister();
  bool IsRegistered() const { return _registered; }

 protected:
  explicit PollIdleHandler(bool reg);

 private:
  friend class PollProcessor;

  bool _registered = false;
  bool _done = false;
};

// A Unix signal, or several: one handler may be registered for more than one.
class PollSignalHandler {
 public:
  PollSignalHandler(const PollSignalHandler&) = delete;
  PollSignalHandler& operator=(const PollSignalHandler&) = delete;
  virtual ~PollSignalHandler() noexcept(false);

  // Runs on the loop's thread, not in the interrupt context.
  virtual void HandleSignal(int signal) = 0;
  virtual const char* Description() const;

  // Not idempotent: each call adds one more delivery of `signal`.
  void Register(int signal);
  // From all signals at once. They go on being caught, and reach nobody.
  void UnRegister();
  bool IsRegistered() const { return _registered; }

 protected:
  PollSignalHandler(int signal, bool reg);

 private:
  bool _registered = false;
};

class PollProcessor {
 public:
  static PollProcessor& Instance();

  PollProcessor(const PollProcessor&) = delete;
  PollProcessor& operator=(const PollProcessor&) = delete;

  // One pass. `timeout`: the longest wait in milliseconds, negative for no limit; timers and idle work shorten it.
  // False once a signal of QuitOnSignal has been delivered, and ever after.
  // Throws ErrnoError "PollProcessor: error calling poll()", and what the handlers throw.
  bool Poll(int timeout);

  // For the clients, which keep count of being registered; other code calls Register and UnRegister of the client.
  void RegisterItem(PollItem* item);
  void UnRegisterItem(PollItem* item);
  void RegisterTimer(PollTimer* timer);
  void UnRegisterTimer(PollTimer* timer);
  void RegisterIdleHandler(PollIdleHandler* handler);
  void UnRegisterIdleHandler(PollIdleHandler* handler);
  // Catches the signal; throws what SignalProcessor::catch_signal throws, and then nothing is registered.
  void RegisterSignalHandler(int signal, PollSignalHandler* handler);
  void UnRegisterSignalHandler(PollSignalHandler* handler);

  // An item's descriptor or requested events are no longer those of the last poll call.
  void EventChange();
  // Every setter of a timer calls this. Does nothing: each pass looks at all timers afresh.
  void TimeoutChange();

  // End the loop on this signal, or drop it. A dropped signal is caught, so it still interrupts the poll call.
  void QuitOnSignal(int signal);
  void IgnoreSignal(int signal);

  // The steps of a pass, for Poll alone.
  void RebuildInfo();
  int RunTimers(int timeout);  // returns `timeout`, shortened to the next expiry
  void RunEvents();
  void RunIdleHandlers();
  void RunSignalHandlers();
  PollItem* FindItem(int fd) const;  // the first one registered, or nullptr

 private:
  class _QuitSignalHandler : public PollSignalHandler {
   public:
    _QuitSignalHandler(int signal, bool& quit) : PollSignalHandler(signal, true), _quit(quit) {}
    void HandleSignal(int signal) override;

   private:
    bool& _quit;
  };

  class _IgnoreSignalHandler : public PollSignalHandler {
   public:
    explicit _IgnoreSignalHandler(int signal) : PollSignalHandler(signal, true) {}
    void HandleSignal(int signal) override;
  };

  PollProcessor();
  ~PollProcessor();

  void _Activity();

  std::vector<pollfd> _fds;  // kept from pass to pass while no item changes
  std::vector<PollItem*> _items;
  std::vector<PollTimer*> _timers;
  std::vector<PollIdleHandler*> _idle;
  std::map<int, std::vector<PollSignalHandler*>> _signals;

  bool _rebuild = true;        // _fds no longer matches _items
  bool _idle_started = false;  // an idle cycle has begun, and no activity since
  bool _idle_done = false;     // no handler of the cycle has more work: poll may block

  // What the running step has picked and not called yet. Members, so that a client that unregisters can strike itself
  // out. They are taken from the front; they hold a few entries, and keep their memory.
  std::vector<PollTimer*> _expired;
  std::vector<PollIdleHandler*> _idle_work;
  std::vector<std::pair<PollSignalHandler*, int>> _signal_work;

  // Never below the number of records in _fds with returned events: behind the last of them the walk ends.
  int _ready = 0;

  bool _quit = false;  // never cleared

  // Last, as these unregister themselves from the lists above.
  std::unique_ptr<_QuitSignalHandler> _quit_handler;
  std::unique_ptr<_IgnoreSignalHandler> _ignore_handler;
};
