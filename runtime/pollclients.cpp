// The four client bases of the poll loop.

#include <algorithm>
#include <array>
#include <ctime>

#include "runtime/pollprocessor.h"

namespace {

constexpr int64_t kNanosPerSecond = 1'000'000'000;
constexpr int64_t kNanosPerMilli = 1'000'000;

int64_t ReadClock(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return int64_t{now.tv_sec} * kNanosPerSecond + now.tv_nsec;
}

}  // namespace

PollItem::PollItem(short events, bool reg) : _events(events) {
  if (reg) Register();
}

PollItem::~PollItem() noexcept(false) {
  UnRegister();
}

void PollItem::Register() {
  if (_registered) return;
  PollProcessor::Instance().RegisterItem(this);
  _registered = true;
}

void PollItem::UnRegister() {
  if (!_registered) return;
  _registered = false;
  PollProcessor::Instance().UnRegisterItem(this);
}

void PollItem::SetRequestedEvents(short events) {
  if (events == _events) return;
  _events = events;
  PollProcessor::Instance().EventChange();
}

void PollItem::HandleEvents(short revents) {
  struct Step {
    short bit;
    void (PollItem::*handle)();
  };
  // Not in the order of the bits: what can still be read or written comes before the news that it is over.
  static constexpr std::array<Step, 6> kSteps = {{{POLLPRI, &PollItem::HandleUrgentRead},
                                                  {POLLIN, &PollItem::HandleRead},
                                                  {POLLOUT, &PollItem::HandleWrite},
                                                  {POLLERR, &PollItem::HandleError},
                                                  {POLLHUP, &PollItem::HandleHangUp},
                                                  {POLLNVAL, &PollItem::HandleInvalid}}};
  for (const Step& step : kSteps)
    if (_registered && (revents & step.bit) != 0) (this->*step.handle)();
}

void PollItem::HandleRead() {}
void PollItem::HandleUrgentRead() {
  HandleRead();
}
void PollItem::HandleWrite() {}
void PollItem::HandleError() {}
void PollItem::HandleInvalid() {}
void PollItem::HandleHangUp() {}
const char* PollItem::Description() const {
  return "PollItem";
}

PollTimer::PollTimer(int timeout, bool reg) {
  if (reg) Register();
  SetTimeout(timeout);
}

PollTimer::~PollTimer() noexcept(false) {
  UnRegister();
}

const char* PollTimer::Description() const {
  return "PollTimer";
}

void PollTimer::Register() {
  if (_registered) return;
  PollProcessor::Instance().RegisterTimer(this);
  _registered = true;
}

void PollTimer::UnRegister() {
  if (!_registered) return;
  _registered = false;
  _active = false;
  PollProcessor::Instance().UnRegisterTimer(this);
}

void PollTimer::SetTimeout(int timeout) {
  if (timeout < 0)
    _Disarm();
  else if (_registered)
    _Arm(Now() + timeout * kNanosPerMilli);
}

void PollTimer::SetTimeout(const timeval* deadline) {
  if (deadline == nullptr) {
    _Disarm();
  } else if (_registered) {
    // Further away than any clock here will get, and still far from the ends of 64 bits in nanoseconds.
    constexpr int64_t kFarSeconds = 7'000'000'000;
    const int64_t seconds = std::clamp(int64_t{deadline->tv_sec}, -kFarSeconds, kFarSeconds);
    const int64_t distance = seconds * kNanosPerSecond + deadline->tv_usec * int64_t{1000} - ReadClock(CLOCK_REALTIME);
    const int64_t millis = std::max<int64_t>(distance / kNanosPerMilli, 0);
    _Arm(Now() + millis * kNanosPerMilli);
  }
}

void PollTimer::AddTimeout(int timeout) {
  if (timeout < 0)
    _Disarm();
  else if (_registered)
    _Arm(_expiry + timeout * kNanosPerMilli);
}

int64_t PollTimer::Now() {
  return ReadClock(CLOCK_MONOTONIC);
}

void PollTimer::_Arm(int64_t expiry) {
  _expiry = expiry;
  _active = true;
  PollProcessor::Instance().TimeoutChange();
}

void PollTimer::_Disarm() {
  _active = false;
  PollProcessor::Instance().TimeoutChange();
}

PollIdleHandler::PollIdleHandler(bool reg) {
  if (reg) Register();
}

PollIdleHandler::~PollIdleHandler() noexcept(false) {
  UnRegister();
}

const char* PollIdleHandler::Description() const {
  return "PollIdleHandler";
}

void PollIdleHandler::Register() {
  if (_registered) return;
  PollProcessor::Instance().RegisterIdleHandler(this);
  _registered = true;
}

void PollIdleHandler::UnRegister() {
  if (!_registered) return;
  _registered = false;
  PollProcessor::Instance().UnRegisterIdleHandler(this);
}

PollSignalHandler::PollSignalHandler(int signal, bool reg) {
  if (reg) Register(signal);
}

PollSignalHandler::~PollSignalHandler() noexcept(false) {
  UnRegister();
}

const char* PollSignalHandler::Description() const {
  return "PollSignalHandler";
}

void PollSignalHandler::Register(int signal) {
  PollProcessor::Instance().RegisterSignalHandler(signal, this);
  _registered = true;
}

void PollSignalHandler::UnRegister() {
  if (!_registered) return;
  _registered = false;
  PollProcessor::Instance().UnRegisterSignalHandler(this);
}
