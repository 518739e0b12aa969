// The Avahi library's poll abstraction (avahi-common/watch.h) on our own poll loop: each watch is a PollItem, each
// timeout a PollTimer. The library runs no thread and no loop of its own.
//
// Thread: that of the poll loop.
//
// Ownership: the library owns what it makes through _avahi_watch_new and _avahi_timeout_new, and frees it with the
// functions below. It does so from within the very callback of a watch or timeout as well, when the daemon stops or
// the bus goes away. The adapter is off the loop from that moment on, and stays in memory until the loop no longer
// looks at it.
//
// Exceptions: the library is C and mustn't see one. Code that it calls back runs in AvahiCall::Guard, which keeps what
// is thrown; the handler of the adapter throws it on, to the host of the loop, once the library has returned.

#pragma once

#include <avahi-common/watch.h>

#include <exception>
#include <memory>

#include "runtime/pollprocessor.h"

// While one lives, frames of the library may be on the stack. They nest.
class AvahiCall {
 public:
  AvahiCall();
  AvahiCall(const AvahiCall&) = delete;
  AvahiCall& operator=(const AvahiCall&) = delete;
  // The outermost one destroys what Bury() was given in the meantime.
  ~AvahiCall();

  // Lets go of an object that the library's frames may still need: when the outermost call is over, or now.
  static void Bury(std::shared_ptr<void> object);

  // Runs `body`, which the library has called, and keeps an exception that leaves it; only the first is kept.
  template <typename Body>
  static void Guard(Body body) noexcept {
    try {
      body();
    } catch (...) {
      _Keep(std::current_exception());
    }
  }
  // Throws what was kept if anything was, and forgets it.
  static void ThrowKept();

 private:
  static void _Keep(std::exception_ptr thrown) noexcept;
};

// The library declares these two as struct, in the global namespace, and leaves them to whoever implements its loop.

struct AvahiWatch : public PollItem {
 public:
  AvahiWatch(int fd, AvahiWatchEvent events, AvahiWatchCallback callback, void* userdata);
  ~AvahiWatch() override;

  int Fileno() const override { return _fd; }
  // The bus has one watch for reading and one for writing on the same descriptor, and the loop gives the events of
  // both to the first: so each watch gets what it has asked for from here, whoever was called.
  void HandleEvents(short revents) override;
  void HandleRead() override;
  void HandleWrite() override;
  const char* Description() const override;

  // Input and output count. Errors and hang-ups aren't asked for: they come along with input.
  void SetWatchedEvents(AvahiWatchEvent events);
  // 0 while the callback runs, afterwards the event that it was called for. That is meant: nobody asks during the
  // callback, which is given the event.
  AvahiWatchEvent CurrentEvents() const { return _current; }

 private:
  template <class Adapter>
  friend class AvahiAdapters;

  void _Deliver(AvahiWatchEvent event);

  const AvahiWatchCallback _callback;
  AvahiWatchEvent _current{};
  const int _fd;
  void* const _userdata;
  int _running = 0;  // handlers on the stack
};

struct AvahiTimeout : public PollTimer {
 public:
  // `deadline`: a moment of the wall clock, or nullptr for none yet.
  AvahiTimeout(const timeval* deadline, AvahiTimeoutCallback callback, void* userdata);
  ~AvahiTimeout() override;

  void HandleTimeout() override;
  const char* Description() const override;

 private:
  template <class Adapter>
  friend class AvahiAdapters;

  const AvahiTimeoutCallback _callback;
  void* const _userdata;
  int _running = 0;
};

// What avahi_client_new wants. There is one record for the whole process.
const AvahiPoll* _avahi_poll_get();

// Its seven functions. A null watch or timeout is ignored.
AvahiWatch* _avahi_watch_new(const AvahiPoll* api, int fd, AvahiWatchEvent events, AvahiWatchCallback callback,
                             void* userdata);
void _avahi_watch_update(AvahiWatch* watch, AvahiWatchEvent events);
AvahiWatchEvent _avahi_watch_get_events(AvahiWatch* watch);
void _avahi_watch_free(AvahiWatch* watch);
AvahiTimeout* _avahi_timeout_new(const AvahiPoll* api, const timeval* deadline, AvahiTimeoutCallback callback,
                                 void* userdata);
void _avahi_timeout_update(AvahiTimeout* timeout, const timeval* deadline);  // no deadline disarms
void _avahi_timeout_free(AvahiTimeout* timeout);

// How many watches and timeouts the library holds.
size_t _avahi_watch_count();
size_t _avahi_timeout_count();
