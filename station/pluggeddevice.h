// A character device that may be pulled out. Its events would come in every pass from then on, and with each of them an
// error: it asks for no more, and its owner closes it at the next look.
//
// Thread: the poll loop's.

#pragma once

#include <poll.h>

template <class Device>
class PluggedDevice : public Device {
 public:
  using Device::Device;

  bool HasGone() const { return _gone; }

  void HandleEvents(short revents) override {
    Device::HandleEvents(revents);
    if ((revents & (POLLERR | POLLHUP | POLLNVAL)) == 0) return;
    _gone = true;
    Device::UnRegister();
  }

 private:
  bool _gone = false;
};
