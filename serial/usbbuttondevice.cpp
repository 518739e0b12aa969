#include "serial/usbbuttondevice.h"

#include <fcntl.h>

#include <exception>
#include <iostream>
#include <string_view>
#include <utility>

void UsbButtonDevice::Listener::GotUsbButtonLong() {}

UsbButtonDevice::UsbButtonDevice(const std::string& device) : PollItem(POLLIN, true), _file(device, O_RDWR) {}

UsbButtonDevice::Listener* UsbButtonDevice::RegisterListener(Listener* listener) {
  return std::exchange(_listener, listener);
}

void UsbButtonDevice::HandleRead() {
  try {
    const size_t size = _file.Read(_buffer.data(), static_cast<unsigned int>(_buffer.size()));
    for (const char event : std::string_view(_buffer.data(), size)) _Dispatch(event);
  } catch (const std::exception& error) {
    std::cout << "UsbButtonDevice::HandleRead(): ERROR: " << error.what() << std::endl;
  }
}

void UsbButtonDevice::_Dispatch(char event) {
  if (_listener == nullptr) return;
  if (event == 'D') _listener->GotUsbButtonDown();
  if (event == 'U') _listener->GotUsbButtonUp();
  if (event == 'L') _listener->GotUsbButtonLong();
}

void UsbButtonDevice::LED_On() {
  _file.Write("Y");
}

void UsbButtonDevice::LED_Off() {
  _file.Write("N");
}

void UsbButtonDevice::LED_Activity() {
  _file.Write("A");
}

void UsbButtonDevice::LED_Error() {
  _file.Write("E");
}
