#include "serial/sonicdevice.h"

#include <iostream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "serial/serial_fields.h"

namespace {

constexpr char kStx = 2;
constexpr char kEtx = 3;
constexpr size_t kShortest = 7;       // bytes of a message
constexpr size_t kMessageRoom = 256;  // bytes

constexpr size_t kFirstAnalogue = 5;  // in SonicData::values

uint32_t ErrorFlags(uint32_t status) {
  return status == 0 ? 0 : status < 10 ? 0x440 : 0x40;
}

void Print(const std::string& message) {
  std::cout << "Sonic: ";
  for (const char c : message) {
    if (c == kStx)
      std::cout << "<STX>";
    else if (c == kEtx)
      std::cout << "<ETX>";
    else
      std::cout << c;
  }
  std::cout << std::endl;
}

}  // namespace

void SonicDeviceListener::GotSonicData(int, const SonicData&) {}

SonicDevice::SonicDevice(const std::string& device, int unitNumber, int bps, bool verbose)
    : _devicePath(device),
      _unitNumber(unitNumber),
      _framer(kMessageRoom),
      _control(device),
      _writer(device),
      _reader(device),
      _verbose(verbose) {
  _reader.RegisterListener(this);
  SetBps(bps);
}

void SonicDevice::SetBps(int bps) {
  LinuxTTYControl::ConfigInfo config;
  config.baudRate = bps;
  if (!_control.configure(config)) throw std::runtime_error("Unable to configure Sonic: " + _devicePath);
}

SonicDeviceListener* SonicDevice::RegisterListener(SonicDeviceListener* listener) {
  return std::exchange(_listener, listener);
}

void SonicDevice::ReceivedChars(LinuxTTYReader&, const char* data, int length) {
  _framer.Take(data, length, [this](const std::string& message) { _EndMessage(message); });
}

void SonicDevice::_EndMessage(const std::string& message) {
  if (_verbose) Print(message);
  if (_listener != nullptr && message.size() >= kShortest) _HandleMessage(message);
}

void SonicDevice::_HandleMessage(const std::string& message) {
  const size_t etx = message.size() - 3;
  if (message[0] != kStx || message[etx] != kEtx || !ChecksumAgrees(message)) return;
  // The ETX counts as the delimiter behind the last field, so that the status may be it.
  FieldStream fields(std::string_view(message).substr(1, etx));
  SonicData data;
  GPSReadChar(fields);  // the unit's own name: ours is the number
  for (size_t axis = 0; axis < 3; ++axis) data.values[axis] = GPSReadDouble(fields);
  const char units = GPSReadChar(fields);
  data.values[3] = GPSReadDouble(fields);
  data.values[4] = GPSReadDouble(fields);
  data.errorFlags = ErrorFlags(GPSReadUnsigned(fields));
  if (units != 'M' || fields.fail()) return;
  for (size_t input = kFirstAnalogue; input < data.values.size(); ++input) {
    const double value = GPSReadDouble(fields);
    if (!fields.fail()) data.values[input] = value;
  }
  _listener->GotSonicData(_unitNumber, data);
}
