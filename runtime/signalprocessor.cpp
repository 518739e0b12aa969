#include "runtime/signalprocessor.h"

#include "runtime/errnoexcept.h"

SignalProcessor& SignalProcessor::instance() {
  static SignalProcessor processor;
  return processor;
}

void SignalProcessor::signal_handler(int signal) {
  SignalProcessor& arrived = instance();
  arrived._marks[signal] = 1;
  arrived._any = 1;
}

void SignalProcessor::catch_signal(int signal, Handler handler) {
  clear_pending(signal);
  if (_safe_signal(signal, handler) == SIG_ERR) throw ErrnoError("Unable to install signal handler");
}

void SignalProcessor::catch_signal(int signal) {
  catch_signal(signal, signal_handler);
}

void SignalProcessor::ignore_signal(int signal) {
  if (_safe_signal(signal, SIG_IGN) == SIG_ERR) throw ErrnoError("Unable to ignore signal");
  clear_pending(signal);
}

void SignalProcessor::set_default_action(int signal) {
  if (_safe_signal(signal, SIG_DFL) == SIG_ERR) throw ErrnoError("Unable to set default action on signal");
  clear_pending(signal);
}

void SignalProcessor::sleep_till_signal(int signal) {
  sigset_t only, previous;
  sigemptyset(&only);
  sigaddset(&only, signal);
  pthread_sigmask(SIG_BLOCK, &only, &previous);
  if (!is_pending(signal)) {
    sigset_t waiting = previous;
    sigdelset(&waiting, signal);
    sigsuspend(&waiting);
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

bool SignalProcessor::any_pending() const {
  return _any != 0;
}

bool SignalProcessor::is_pending(int signal) const {
  return signal > 0 && signal < NSIG && _marks[signal] != 0;
}

void SignalProcessor::clear_pending(int signal) {
  if (!is_pending(signal)) return;
  _marks[signal] = 0;
  // In this order: a signal that arrives before the look at its mark is found there, a later one sets the flag itself.
  _any = 0;
  for (const volatile sig_atomic_t& mark : _marks)
    if (mark != 0) _any = 1;
}

SignalProcessor::Handler SignalProcessor::_safe_signal(int signal, Handler handler) {
  struct sigaction action = {}, previous = {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = signal == SIGALRM ? SA_INTERRUPT : SA_RESTART;
  return sigaction(signal, &action, &previous) == 0 ? previous.sa_handler : SIG_ERR;
}

SignalsBlocked::SignalsBlocked() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &_previous);
}

SignalsBlocked::~SignalsBlocked() {
  pthread_sigmask(SIG_SETMASK, &_previous, nullptr);
}
