#include "serial/ppsdevice.h"

#include <fcntl.h>

#include <cstring>
#include <exception>
#include <iostream>
#include <utility>

PPSDevice::PPSDevice(const std::string& device, bool verbose)
    : PollItem(POLLIN, true), _file(device, O_RDWR), _verbose(verbose) {}

PPSDevice::Listener* PPSDevice::RegisterListener(Listener* listener) {
  return std::exchange(_listener, listener);
}

void PPSDevice::HandleRead() {
  try {
    const size_t size = _file.Read(_buffer.data(), static_cast<unsigned int>(_buffer.size()));
    TimeVal time;
    for (size_t at = 0; at + sizeof time <= size && _listener != nullptr; at += sizeof time) {
      std::memcpy(&time, _buffer.data() + at, sizeof time);
      _listener->GotPPS(time);
    }
  } catch (const std::exception& error) {
    std::cout << "PPSDevice::HandleRead(): ERROR: " << error.what() << std::endl;
  }
}
