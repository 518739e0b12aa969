#include "daqm/daqmdevice.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstring>
#include <exception>
#include <iomanip>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <utility>

#include "runtime/str_util.h"
#include "runtime/superuser.h"

namespace {

constexpr size_t kTail = 9;  // bytes of a line: the checksum and the line feed
constexpr size_t kLineReserve = 256;

LinuxTTYControl::ConfigInfo BusSettings() {
  LinuxTTYControl::ConfigInfo settings;
  settings.baudRate = 115'200;
  return settings;
}

// As a stream reads it: digits in either case, as far as they go, and a sign and "0x" may stand in front. The line feed
// ends them.
std::optional<uint32_t> ReadHexadecimal(std::string_view text) {
  SkipSpace(text);
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  uint32_t value = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), value, 16).ec != std::errc()) return {};
  return negative ? 0 - value : value;
}

}  // namespace

uint32_t _CalculateChecksum(std::string_view text) {
  constexpr size_t kWord = 4;
  uint32_t sum = 0;
  uint32_t word = 0;
  size_t at = 0;
  for (; at + kWord <= text.size(); at += kWord) {
    std::memcpy(&word, text.data() + at, kWord);
    sum ^= word;
  }
  word = 0;
  std::memcpy(&word, text.data() + at, text.size() - at);
  return ntohl(sum ^ word);
}

std::string_view _SkipHopCount(std::string_view line, bool has_checksum) {
  const size_t first = line.find('"');
  const size_t second = first == line.npos ? line.npos : line.find('"', first + 1);
  if (has_checksum) line.remove_suffix(std::min(line.size(), kTail));
  if (second != line.npos) line.remove_prefix(std::min(line.size(), second));
  return line;
}

std::string FrameDAQMLine(std::string_view body) {
  std::string line;
  line.reserve(body.size() + kTail);
  line = body;
  const uint32_t sum = _CalculateChecksum(_SkipHopCount(body, false));
  for (int shift = 28; shift >= 0; shift -= 4) line += "0123456789ABCDEF"[sum >> shift & 0xF];
  return line += '\n';
}

bool ValidateChecksum(std::string_view line) {
  if (line.size() < kTail) throw std::out_of_range("ValidateChecksum: a line is too short for a checksum");
  const uint32_t calculated = _CalculateChecksum(_SkipHopCount(line, true));
  const std::optional<uint32_t> embedded = ReadHexadecimal(line.substr(line.size() - kTail));
  if (embedded == calculated) return true;
  std::cout << std::hex << std::setfill('0') << "ERROR: Invalid checksum: " << line
            << "\n     Embedded checksum: " << std::setw(8) << embedded.value_or(0)
            << "\n   Calculated checksum: " << std::setw(8) << calculated << std::dec << std::setfill(' ') << std::endl;
  return false;
}

std::string _SanitizeJSON(std::string_view text) {
  constexpr std::string_view kNaN = "nan";
  std::string clean;
  clean.reserve(text.size());
  for (size_t at; (at = text.find(kNaN)) != text.npos; text.remove_prefix(at + kNaN.size()))
    clean.append(text.substr(0, at)).append("null");
  return clean.append(text);
}

void DAQMDevice::Listener::GotDAQMLine(std::string) {}

DAQMDevice::DAQMDevice(const std::string& device, int gpio, Listener* listener, bool verbose)
    : _tty_name(device),
      _power(gpio),
      _control(device),
      _writer(device),
      _reader(device),
      _listener(listener),
      _verbose(verbose) {
  _line.reserve(kLineReserve);
  if (_listener == nullptr) throw std::runtime_error("DAQMDevice: Invalid listener");
  if (!_control.configure(BusSettings()))
    throw std::runtime_error("Unable to configure DAQM serial port: " + _tty_name);
  std::cout << "DAQMDevice: XON/XOFF is " << (_control.configuration().softwareFlowControl ? "enabled" : "disabled")
            << std::endl;
  _reader.RegisterListener(this);
  _SetPower(true);
}

DAQMDevice::~DAQMDevice() noexcept(false) {
  try {
    _SetPower(false);
  } catch (...) {
    if (std::uncaught_exceptions() == 0) throw;
  }
}

void DAQMDevice::_SetPower(bool on) {
  const SuperUser rights;
  _power.setValue(on);
}

void DAQMDevice::Write(const std::string& line) {
  if (line.size() <= static_cast<size_t>(_writer.Room())) {
    _writer.Write(line);
    return;
  }
  std::cout << "ERROR: DAQMDevice: No room for a line of " << line.size() << " bytes: " << _tty_name << std::endl;
}

void DAQMDevice::DumpTTYErrors() const {
  const LinuxTTYControl::LineCounters counters = _control.lineCounters();
  std::cout << _tty_name << " ERRORS: "
            << " FRAMING: " << counters.frame << " OVERRUN: " << counters.overrun << " PARITY: " << counters.parity
            << " BREAK: " << counters.brk << " BUFOVERRUN: " << counters.buf_overrun << std::endl;
}

// A line that is thrown at doesn't hold up those behind it.
void DAQMDevice::ReceivedChars(LinuxTTYReader&, const char* data, int count) {
  std::exception_ptr failure;
  const char* const end = data + count;
  while (const void* const found = std::memchr(data, '\n', static_cast<size_t>(end - data))) {
    const char* const next = static_cast<const char*>(found) + 1;
    _line.insert(_line.end(), data, next);
    data = next;
    std::string line(_line.begin(), _line.end());
    _line.clear();
    try {
      _GotLine(std::move(line));
    } catch (...) {
      if (failure == nullptr) failure = std::current_exception();
    }
  }
  _line.insert(_line.end(), data, end);
  if (failure != nullptr) std::rethrow_exception(failure);
}

void DAQMDevice::_GotLine(std::string line) {
  if (_verbose) std::cout << "DAQM Rx: " << line << std::flush;
  _listener->GotDAQMLine(std::move(line));
}
