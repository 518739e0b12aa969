// The process-wide record of signals that have arrived and have not been delivered yet.
//
// The asynchronous handler only marks the signal here; PollProcessor delivers it later, on the loop's thread and
// outside the interrupt context. Several arrivals before a delivery are one mark. Nothing here is locked: one thread
// catches signals and takes the marks. Other threads are started with all signals blocked.

#pragma once

#include <csignal>

class SignalProcessor {
 public:
  using Handler = void (*)(int);

  static SignalProcessor& instance();

  SignalProcessor(const SignalProcessor&) = delete;
  SignalProcessor& operator=(const SignalProcessor&) = delete;

  // The asynchronous handler; async-signal-safe once instance() has been called.
  static void signal_handler(int signal);

  // Forget a mark left from before, then install the handler (signal_handler in the second form).
  // Throws ErrnoError "Unable to install signal handler".
  void catch_signal(int signal, Handler handler);
  void catch_signal(int signal);

  // Install the system's disposition, then forget the mark, which may have been set until then.
  // Throw ErrnoError "Unable to ignore signal" and "Unable to set default action on signal".
  void ignore_signal(int signal);
  void set_default_action(int signal);

  // Waits until a signal has been handled, for code that runs outside the loop. Returns at once when `signal` is
  // already marked as pending here. `signal` is blocked between that look and the wait, so no wake-up is lost.
  // Leaves the mark alone.
  void sleep_till_signal(int signal);

  bool any_pending() const;
  bool is_pending(int signal) const;
  void clear_pending(int signal);

  // Installs through sigaction(2) with an empty mask. Interrupted calls are restarted, except after SIGALRM, whose
  // use is to break them. Returns the previous handler, or SIG_ERR with errno set.
  Handler _safe_signal(int signal, Handler handler);

 private:
  SignalProcessor() = default;

  // One for each signal, so that marking is one store: the handlers of two signals may interrupt each other.
  volatile sig_atomic_t _marks[NSIG] = {};
  volatile sig_atomic_t _any = 0;  // set after any mark
};

// Blocks all signals in the calling thread for the length of a scope. A thread that is started in it has them blocked
// for good, so that a signal goes to the loop's thread, whose wait it has to end.
class SignalsBlocked {
 public:
  SignalsBlocked();
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;
  ~SignalsBlocked();

 private:
  sigset_t _previous;
};
