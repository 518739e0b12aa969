#include "net/avahipoll.h"

#include <utility>
#include <vector>

namespace {

struct Calls {
  int depth = 0;
  std::vector<std::shared_ptr<void>> buried;
  std::exception_ptr kept;
};

Calls& TheCalls() {
  static Calls calls;
  return calls;
}

short PollEvents(AvahiWatchEvent events) {
  return static_cast<short>(((events & AVAHI_WATCH_IN) != 0 ? POLLIN : 0) |
                            ((events & AVAHI_WATCH_OUT) != 0 ? POLLOUT : 0));
}

// The library understands null as lack of memory.
template <typename Make>
auto MadeOrNull(Make make) noexcept -> decltype(make()) {
  try {
    return make();
  } catch (const std::exception&) {
    return nullptr;
  }
}

}  // namespace

// All adapters of one kind.
template <class Adapter>
class AvahiAdapters {
 public:
  static AvahiAdapters& Instance() {
    static AvahiAdapters adapters;
    return adapters;
  }

  // Those in the library's hands; adding and freeing change it.
  const std::vector<Adapter*>& InUse() const { return _in_use; }

  void Add(Adapter* adapter) { _in_use.push_back(adapter); }
  void Remove(Adapter* adapter) { std::erase(_in_use, adapter); }

  void Free(Adapter* adapter) {
    if (adapter == nullptr) return;
    std::unique_ptr<Adapter> freed(adapter);
    freed->UnRegister();
    Remove(adapter);
    if (freed->_running != 0) _freed.push_back(std::move(freed));
  }

  // Marks the adapter as running. By then the loop has done with those freed in handlers that have returned.
  class Running {
   public:
    explicit Running(Adapter& adapter) : _adapter(adapter) {
      ++_adapter._running;
      std::erase_if(Instance()._freed, [](const auto& freed) { return freed->_running == 0; });
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running() { --_adapter._running; }

   private:
    Adapter& _adapter;
  };

 private:
  std::vector<Adapter*> _in_use;
  std::vector<std::unique_ptr<Adapter>> _freed;  // in their own handler
};

using Watches = AvahiAdapters<AvahiWatch>;
using Timeouts = AvahiAdapters<AvahiTimeout>;

AvahiCall::AvahiCall() {
  ++TheCalls().depth;
}

AvahiCall::~AvahiCall() {
  Calls& calls = TheCalls();
  if (--calls.depth == 0) std::exchange(calls.buried, {}).clear();
}

void AvahiCall::Bury(std::shared_ptr<void> object) {
  if (TheCalls().depth != 0) TheCalls().buried.push_back(std::move(object));
}

void AvahiCall::_Keep(std::exception_ptr thrown) noexcept {
  if (!TheCalls().kept) TheCalls().kept = std::move(thrown);
}

void AvahiCall::ThrowKept() {
  if (const std::exception_ptr kept = std::exchange(TheCalls().kept, nullptr)) std::rethrow_exception(kept);
}

AvahiWatch::AvahiWatch(int fd, AvahiWatchEvent events, AvahiWatchCallback callback, void* userdata)
    : PollItem(PollEvents(events), true), _callback(callback), _fd(fd), _userdata(userdata) {
  Watches::Instance().Add(this);
}

AvahiWatch::~AvahiWatch() {
  Watches::Instance().Remove(this);
}

void AvahiWatch::HandleEvents(short revents) {
  const Watches::Running running(*this);
  const int fd = _fd;
  const std::vector<AvahiWatch*>& watches = Watches::Instance().InUse();
  for (size_t i = 0; i < watches.size(); ++i) {
    AvahiWatch& watch = *watches[i];
    if (watch._fd != fd) continue;
    const Watches::Running also_running(watch);
    watch.PollItem::HandleEvents(static_cast<short>(revents & watch.RequestedEvents()));
  }
}

void AvahiWatch::HandleRead() {
  _Deliver(AVAHI_WATCH_IN);
}

void AvahiWatch::HandleWrite() {
  _Deliver(AVAHI_WATCH_OUT);
}

void AvahiWatch::_Deliver(AvahiWatchEvent event) {
  const Watches::Running running(*this);
  _current = AvahiWatchEvent{};
  {
    const AvahiCall call;
    _callback(this, _fd, event, _userdata);
  }
  _current = event;
  AvahiCall::ThrowKept();
}

const char* AvahiWatch::Description() const {
  return "AvahiWatch";
}

void AvahiWatch::SetWatchedEvents(AvahiWatchEvent events) {
  SetRequestedEvents(PollEvents(events));
}

AvahiTimeout::AvahiTimeout(const timeval* deadline, AvahiTimeoutCallback callback, void* userdata)
    : PollTimer(-1, true), _callback(callback), _userdata(userdata) {
  SetTimeout(deadline);
  Timeouts::Instance().Add(this);
}

AvahiTimeout::~AvahiTimeout() {
  Timeouts::Instance().Remove(this);
}

void AvahiTimeout::HandleTimeout() {
  const Timeouts::Running running(*this);
  {
    const AvahiCall call;
    _callback(this, _userdata);
  }
  AvahiCall::ThrowKept();
}

const char* AvahiTimeout::Description() const {
  return "AvahiTimeout";
}

const AvahiPoll* _avahi_poll_get() {
  static const AvahiPoll poll = {nullptr,           _avahi_watch_new,   _avahi_watch_update,   _avahi_watch_get_events,
                                 _avahi_watch_free, _avahi_timeout_new, _avahi_timeout_update, _avahi_timeout_free};
  return &poll;
}

AvahiWatch* _avahi_watch_new(const AvahiPoll*, int fd, AvahiWatchEvent events, AvahiWatchCallback callback,
                             void* userdata) {
  return MadeOrNull([=] { return new AvahiWatch(fd, events, callback, userdata); });
}

void _avahi_watch_update(AvahiWatch* watch, AvahiWatchEvent events) {
  if (watch != nullptr) watch->SetWatchedEvents(events);
}

AvahiWatchEvent _avahi_watch_get_events(AvahiWatch* watch) {
  return watch != nullptr ? watch->CurrentEvents() : AvahiWatchEvent{};
}

void _avahi_watch_free(AvahiWatch* watch) {
  Watches::Instance().Free(watch);
}

AvahiTimeout* _avahi_timeout_new(const AvahiPoll*, const timeval* deadline, AvahiTimeoutCallback callback,
                                 void* userdata) {
  return MadeOrNull([=] { return new AvahiTimeout(deadline, callback, userdata); });
}

void _avahi_timeout_update(AvahiTimeout* timeout, const timeval* deadline) {
  if (timeout != nullptr) timeout->SetTimeout(deadline);
}

void _avahi_timeout_free(AvahiTimeout* timeout) {
  Timeouts::Instance().Free(timeout);
}

size_t _avahi_watch_count() {
  return Watches::Instance().InUse().size();
}

size_t _avahi_timeout_count() {
  return Timeouts::Instance().InUse().size();
}
