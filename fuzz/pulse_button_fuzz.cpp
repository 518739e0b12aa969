// What a pulse device and a push button tell, in pieces: each read is whole for itself. The listeners leave or throw at
// some of it, which is printed, and are back for the next read.
//
// Input: a byte for the size of the pieces, and the bytes, which both devices get.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "emulators/fifo.h"
#include "serial/ppsdevice.h"
#include "serial/usbbuttondevice.h"

namespace {

constexpr size_t kButtonRead = 64;  // bytes

// What the listener does about a pulse.
bool Leaves(const TimeVal& time) {
  return time.seconds % 5 == 1;
}
bool Throws(const TimeVal& time) {
  return time.seconds % 5 == 2;
}

struct PulseLog : PPSDevice::Listener {
  void GotPPS(const TimeVal& time) override {
    told.push_back(time);
    if (Leaves(time)) device.RegisterListener(nullptr);
    if (Throws(time)) throw std::runtime_error("enough");
  }
  Fifo fifo;
  PPSDevice device{fifo.Path(), false};
  std::vector<TimeVal> told;
};

struct ButtonLog : UsbButtonDevice::Listener {
  void GotUsbButtonDown() override { told += 'D'; }
  void GotUsbButtonUp() override {
    told += 'U';
    device.RegisterListener(nullptr);
  }
  void GotUsbButtonLong() override {
    told += 'L';
    throw std::runtime_error("enough");
  }
  Fifo fifo;
  UsbButtonDevice device{fifo.Path()};
  std::string told;
};

std::vector<TimeVal> Pulses(const std::string& read) {
  std::vector<TimeVal> pulses;
  for (size_t at = 0; at + 8 <= read.size(); at += 8) {
    int32_t words[2];
    std::memcpy(words, read.data() + at, sizeof words);
    pulses.emplace_back(words[0], words[1]);
    if (Leaves(pulses.back()) || Throws(pulses.back())) break;
  }
  return pulses;
}

std::string Events(std::string read) {
  std::erase_if(read, [](char c) { return c != 'D' && c != 'U' && c != 'L'; });
  const size_t last = read.find_first_of("UL");
  return last == std::string::npos ? read : read.substr(0, last + 1);
}

// Has `device` read once, for `listener`; what it prints must be the error or nothing.
template <class Device, class Listener>
void Read(Device& device, Listener& listener, const char* error) {
  std::ostringstream printed;
  std::streambuf* const output = std::cout.rdbuf(printed.rdbuf());
  device.RegisterListener(nullptr);
  if (device.RegisterListener(&listener) != nullptr) abort();
  device.HandleRead();
  std::cout.rdbuf(output);
  if (printed.str() != error) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static PulseLog pulses;
  static ButtonLog button;
  if (size < 2) return 0;
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  for (size_t at = 0, piece = 1 + data[0]; at < bytes.size(); at += piece) {
    const std::string part = bytes.substr(at, piece);
    const std::vector<TimeVal> told = Pulses(part);
    pulses.fifo.Write(part);
    pulses.told.clear();
    const bool throws = !told.empty() && Throws(told.back());
    Read(pulses.device, pulses, throws ? "PPSDevice::HandleRead(): ERROR: enough\n" : "");
    if (pulses.told != told) abort();

    button.fifo.Write(part);
    for (size_t read = 0; read < part.size(); read += kButtonRead) {
      const std::string events = Events(part.substr(read, kButtonRead));
      button.told.clear();
      Read(button.device, button, events.ends_with('L') ? "UsbButtonDevice::HandleRead(): ERROR: enough\n" : "");
      if (button.told != events) abort();
    }
  }
  return 0;
}
