// Bytes from a sonic anemometer's line, in chunks of any size: the listener is told what a plain reading of the whole
// finds, which splits the bytes and takes the fields off a formatted stream; and a good message behind them is taken.
//
// Input: a byte for the size of a chunk, a byte, and what comes on the line. With the second byte's low bit each line
// of it is the body of a message that gets its ends and its sum here.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <locale>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "emulators/pty.h"
#include "emulators/sonic_anemometer.h"
#include "fuzz/stream_fields.h"
#include "serial/sonicdevice.h"

namespace {

constexpr int kUnit = 7;
constexpr char kStx = 2, kEtx = 3;

using Record = std::vector<double>;  // the unit, the moment, the values, the flags

struct Log : SonicDeviceListener {
  void GotSonicData(int unit, const SonicData& data) override {
    records.push_back({double(unit), double(data.seconds), double(data.nanoseconds)});
    records.back().insert(records.back().end(), data.values.begin(), data.values.end());
    records.back().push_back(data.errorFlags);
  }
  std::vector<Record> records;
};

std::vector<Record> Heard(const std::string& bytes, size_t chunk) {
  static const Pty pty;
  static SonicDevice device(pty.Path(), kUnit, 57600, false);
  Log log;
  device.RegisterListener(&log);
  for (size_t at = 0; at < bytes.size(); at += chunk)
    device.ReceivedChars(device.Reader(), bytes.data() + at, static_cast<int>(std::min(chunk, bytes.size() - at)));
  device.RegisterListener(nullptr);
  return log.records;
}

// The fields from the unit's name to the ETX. False: no record.
bool Parse(const std::string& text, Record& record) {
  std::istringstream fields(text);
  fields.imbue(std::locale::classic());
  record = {kUnit, 0, 0};
  ReadChar(fields);
  for (int axis = 0; axis < 3; ++axis) record.push_back(ReadDouble(fields));
  const char units = ReadChar(fields);
  for (int i = 0; i < 2; ++i) record.push_back(ReadDouble(fields));
  const uint32_t status = ReadUnsigned(fields);
  if (fields.fail() || units != 'M') return false;
  for (int input = 0; input < 4; ++input) {
    const double value = ReadDouble(fields);
    record.push_back(fields.fail() ? 0 : value);
  }
  record.push_back(status >= 10 ? 0x40 : status >= 1 ? 0x440 : 0);
  return true;
}

std::vector<Record> Meant(std::string bytes) {
  std::vector<Record> records;
  std::erase(bytes, '\n');
  for (size_t end; (end = bytes.find('\r')) != std::string::npos; bytes.erase(0, end + 1)) {
    const std::string message = bytes.substr(0, end);
    if (end <= 6 || message[0] != kStx || message[end - 3] != kEtx) continue;
    int sum = 0;
    for (size_t i = 1; i < end - 3; ++i) sum ^= static_cast<unsigned char>(message[i]);
    if (sum != HexDigit(message[end - 2]) * 16 + HexDigit(message[end - 1])) continue;
    Record record;
    if (Parse(message.substr(1, end - 3), record)) records.push_back(record);
  }
  return records;
}

std::string Messages(const std::string& bodies) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string messages;
  std::istringstream lines(bodies);
  for (std::string body; std::getline(lines, body);) {
    const int sum = std::accumulate(body.begin(), body.end(), 0, [](int a, unsigned char b) { return a ^ b; });
    messages += kStx + body + kEtx + kDigits[sum / 16] + kDigits[sum % 16] + "\r\n";
  }
  return messages;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
  if ((data[1] & 1) != 0) bytes = Messages(bytes);
  bytes += '\r' + SonicAnemometer::Message(SonicAnemometer::ReadingOf(data[1]));
  const std::vector<Record> meant = Meant(bytes);
  if (meant.empty() || meant != Heard(bytes, bytes.size()) || meant != Heard(bytes, 1 + data[0])) abort();
  return 0;
}
