#include "runtime/signalprocessor.h"

#include "runtime/errnoexcept.h"

SignalProcessor& SignalProcessor::instance() {
  static SignalProcessor processor;
  return processor;
}

SignalProcessor::SignalProcessor() {
  sigemptyset(&_pending);
}

void SignalProcessor::signal_handler(int signal) {
  sigaddset(&instance()._pending, signal);
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
  return sigisemptyset(&_pending) == 0;
}

bool SignalProcessor::is_pending(int signal) const {
  return sigismember(&_pending, signal) == 1;
}

// Clearing reads and writes a whole word of the set: a signal that arrived in between would lose its mark, so none
// may arrive.
void SignalProcessor::clear_pending(int signal) {
  if (!is_pending(signal)) return;
  sigset_t all, previous;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &previous);
  sigdelset(&_pending, signal);
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

SignalProcessor::Handler SignalProcessor::_safe_signal(int signal, Handler handler) {
  struct sigaction action = {}, previous = {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = signal == SIGALRM ? SA_INTERRUPT : SA_RESTART;
  return sigaction(signal, &action, &previous) == 0 ? previous.sa_handler : SIG_ERR;
}
