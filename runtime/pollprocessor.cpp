#include "runtime/pollprocessor.h"

#include <algorithm>
#include <limits>

#include "runtime/errnoexcept.h"
#include "runtime/signalprocessor.h"

namespace {

template <class T>
T TakeFront(std::vector<T>& list) {
  const T first = list.front();
  list.erase(list.begin());
  return first;
}

}  // namespace

void PollProcessor::_QuitSignalHandler::HandleSignal(int) {
  _quit = true;
}

void PollProcessor::_IgnoreSignalHandler::HandleSignal(int) {}

PollProcessor& PollProcessor::Instance() {
  static PollProcessor processor;
  return processor;
}

PollProcessor::PollProcessor() = default;

PollProcessor::~PollProcessor() = default;

bool PollProcessor::Poll(int timeout) {
  RunSignalHandlers();
  if (_quit) return false;
  timeout = RunTimers(timeout);
  RebuildInfo();
  // A signal that arrives from here on and before the kernel waits goes unnoticed until the next wake-up of any kind:
  // accepted, and why the plain poll is used, not one with a signal mask.
  const int ready = poll(_fds.data(), _fds.size(), _idle_done ? timeout : 0);
  if (ready >= 0) _ready = ready;
  if (ready == 0)
    RunIdleHandlers();
  else if (ready > 0)
    RunEvents();
  else if (errno == EINTR)
    RunSignalHandlers();
  else
    throw ErrnoError("PollProcessor: error calling poll()");
  return !_quit;
}

void PollProcessor::RegisterItem(PollItem* item) {
  _items.push_back(item);
  _rebuild = true;
}

void PollProcessor::UnRegisterItem(PollItem* item) {
  std::erase(_items, item);
  _rebuild = true;
}

void PollProcessor::RegisterTimer(PollTimer* timer) {
  _timers.push_back(timer);
}

void PollProcessor::UnRegisterTimer(PollTimer* timer) {
  std::erase(_timers, timer);
  std::erase(_expired, timer);
}

void PollProcessor::RegisterIdleHandler(PollIdleHandler* handler) {
  _idle.push_back(handler);
  _idle_done = false;
}

void PollProcessor::UnRegisterIdleHandler(PollIdleHandler* handler) {
  std::erase(_idle, handler);
  std::erase(_idle_work, handler);
}

void PollProcessor::RegisterSignalHandler(int signal, PollSignalHandler* handler) {
  SignalProcessor::instance().catch_signal(signal);
  _signals[signal].push_back(handler);
}

void PollProcessor::UnRegisterSignalHandler(PollSignalHandler* handler) {
  for (auto& entry : _signals) std::erase(entry.second, handler);
  std::erase_if(_signal_work, [handler](const auto& picked) { return picked.first == handler; });
}

void PollProcessor::EventChange() {
  _rebuild = true;
}

void PollProcessor::TimeoutChange() {}

void PollProcessor::QuitOnSignal(int signal) {
  if (_quit_handler)
    _quit_handler->Register(signal);
  else
    _quit_handler = std::make_unique<_QuitSignalHandler>(signal, _quit);
}

void PollProcessor::IgnoreSignal(int signal) {
  if (_ignore_handler)
    _ignore_handler->Register(signal);
  else
    _ignore_handler = std::make_unique<_IgnoreSignalHandler>(signal);
}

void PollProcessor::RebuildInfo() {
  if (!_rebuild) return;
  _fds.clear();
  for (const PollItem* item : _items) {
    const int fd = item->Fileno();
    const short events = item->RequestedEvents();
    if (fd >= 0 && events != 0) _fds.push_back({fd, events, 0});
  }
  _rebuild = false;
}

int PollProcessor::RunTimers(int timeout) {
  if (_timers.empty()) return timeout;
  const int64_t now = PollTimer::Now();
  constexpr int64_t kNever = std::numeric_limits<int64_t>::max();
  int64_t next = kNever;
  for (PollTimer* timer : _timers) {
    if (!timer->_active) continue;
    if (now >= timer->_expiry)
      _expired.push_back(timer);
    else
      next = std::min(next, timer->_expiry);
  }
  while (!_expired.empty()) {
    PollTimer* timer = TakeFront(_expired);
    if (!timer->_active) continue;
    // A handler that ran just now may have moved this one into the future.
    if (now >= timer->_expiry) {
      timer->_active = false;
      timer->HandleTimeout();
      _Activity();
    }
    // Looked up first: its handler may have destroyed it at its very end.
    if (std::ranges::find(_timers, timer) != _timers.end() && timer->_active) next = std::min(next, timer->_expiry);
  }
  if (next == kNever) return timeout;
  // Whole milliseconds, rounded down: the rest is spent in passes that don't wait, so that no timer fires late.
  const int64_t remaining = std::max<int64_t>((next - PollTimer::Now()) / 1'000'000, 0);
  if (timeout >= 0 && timeout <= remaining) return timeout;
  return static_cast<int>(std::min<int64_t>(remaining, std::numeric_limits<int>::max()));
}

void PollProcessor::RunEvents() {
  // Handlers may change the items, and so ask for another array, but this one stays as it is. Records are therefore
  // matched to items by descriptor, at the moment of the call: a stale one finds nobody, or whoever has the
  // descriptor now.
  for (size_t i = 0; _ready > 0 && i < _fds.size(); ++i) {
    const short revents = _fds[i].revents;
    if (revents == 0) continue;
    // Before the call, as the handler may run a pass of its own, which replaces both.
    _fds[i].revents = 0;
    --_ready;
    PollItem* item = FindItem(_fds[i].fd);
    if (item != nullptr && item->IsRegistered()) {
      item->HandleEvents(revents);
      _Activity();
    }
  }
}

void PollProcessor::RunIdleHandlers() {
  const bool new_cycle = !_idle_started;
  _idle_started = true;
  _idle_work.clear();  // an exception may have left handlers behind, which are picked again here
  for (PollIdleHandler* handler : _idle) {
    if (new_cycle) handler->_done = false;
    if (!handler->_done) _idle_work.push_back(handler);
  }
  bool more = false;
  while (!_idle_work.empty()) {
    PollIdleHandler* handler = TakeFront(_idle_work);
    if (handler->HandleIdle())
      more = true;
    else
      handler->_done = true;
  }
  _idle_done = !more;
}

void PollProcessor::RunSignalHandlers() {
  SignalProcessor& arrived = SignalProcessor::instance();
  // An exception may have left deliveries behind; nobody else will ask for them.
  if (!arrived.any_pending() && _signal_work.empty()) return;
  // All are picked before the first is called. A pending signal that nobody ever registered stays pending.
  for (const auto& [signal, handlers] : _signals) {
    if (!arrived.is_pending(signal)) continue;
    arrived.clear_pending(signal);
    for (PollSignalHandler* handler : handlers)
      if (handler->IsRegistered()) _signal_work.emplace_back(handler, signal);
  }
  while (!_signal_work.empty()) {
    const auto [handler, signal] = TakeFront(_signal_work);
    handler->HandleSignal(signal);
  }
}

PollItem* PollProcessor::FindItem(int fd) const {
  for (PollItem* item : _items)
    if (item->Fileno() == fd) return item;
  return nullptr;
}

// A timer has fired or an item has had an event: the next quiet pass starts idle work anew.
void PollProcessor::_Activity() {
  _idle_started = false;
  _idle_done = false;
}
