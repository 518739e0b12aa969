// Bytes from a sonic anemometer's line, in chunks of any size: the listener is told what a plain reading of the whole
// finds, which splits the bytes and takes the fields off a formatted stream; and a message of the emulated anemometer
// behind them is taken, or dropped, as it is.
// The listener leaves at some of the records and is back for the next chunk. All messages are printed besides.
//
// Input: a byte for the size of a chunk, a byte, and what comes on the line. With the second byte's low bit each line
// of it is the body of a message that gets its ends and its sum here.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <locale>
#include <numeric>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "emulators/pty.h"
#include "emulators/sonic_anemometer.h"
#include "fuzz/stream_fields.h"
#include "serial/sonicdevice.h"

namespace {

constexpr int kUnit = 7;
constexpr char kStx = 2, kEtx = 3;

using Record = std::vector<double>;  // the unit, the moment, the values, the flags

struct Heard {
  std::vector<Record> records;
  std::string printed;
  bool operator==(const Heard&) const = default;
};

// At this record the listener leaves.
bool Leaves(double u) {
  return u == 5;
}

struct Listener : SonicDeviceListener {
  Listener() { device.RegisterListener(this); }
  void GotSonicData(int unit, const SonicData& data) override {
    heard.records.push_back({double(unit), double(data.seconds), double(data.nanoseconds)});
    heard.records.back().insert(heard.records.back().end(), data.values.begin(), data.values.end());
    heard.records.back().push_back(data.errorFlags);
    if (Leaves(data.values[0])) device.RegisterListener(nullptr);
  }
  Pty line;
  SonicDevice device{line.Path(), kUnit, 57600, true};
  Heard heard;
};

Heard Hear(const std::string& bytes, size_t chunk) {
  static Listener listener;
  listener.heard = {};
  std::ostringstream printed;
  std::streambuf* const output = std::cout.rdbuf(printed.rdbuf());
  for (size_t at = 0; at < bytes.size(); at += chunk) {
    listener.device.RegisterListener(&listener);
    listener.device.ReceivedChars(listener.device.Reader(), bytes.data() + at,
                                  static_cast<int>(std::min(chunk, bytes.size() - at)));
  }
  std::cout.rdbuf(output);
  listener.heard.printed = printed.str();
  return listener.heard;
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

std::string Shown(const std::string& message) {
  std::string shown;
  for (const char c : message) shown += c == kStx ? "<STX>" : c == kEtx ? "<ETX>" : std::string(1, c);
  return "Sonic: " + shown + '\n';
}

Heard Meant(const std::string& bytes, size_t chunk) {
  Heard meant;
  std::string message;
  bool there = true;
  for (size_t at = 0; at < bytes.size(); ++at) {
    there = there || at % chunk == 0;
    if (bytes[at] != '\r') {
      if (bytes[at] != '\n') message += bytes[at];
      continue;
    }
    meant.printed += Shown(message);
    const std::string text = std::exchange(message, {});
    const size_t etx = text.size() - 3;
    if (!there || text.size() <= 6 || text[0] != kStx || text[etx] != kEtx) continue;
    int sum = 0;
    for (size_t i = 1; i < etx; ++i) sum ^= static_cast<unsigned char>(text[i]);
    Record record;
    if (sum != HexDigit(text[etx + 1]) * 16 + HexDigit(text[etx + 2]) || !Parse(text.substr(1, etx), record)) continue;
    meant.records.push_back(record);
    there = !Leaves(record[3]);
  }
  return meant;
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
  bytes += '\r';
  // Of all habits that the emulated anemometer has.
  const AnemometerSettings settings = {
      .units = "MN"[data[0] >> 7 & 1], .status = data[0] % 12U, .inputs = data[1] % 5, .bad_sums = data[1] % 7 == 6};
  const AnemometerReading sent = SonicAnemometer::ReadingOf(data[1], settings.inputs);
  const Heard heard = Hear(SonicAnemometer::Message(sent, settings), 9);
  for (const size_t chunk : {bytes.size() + 1, size_t{1} + data[0]})
    if (Hear(bytes, chunk) != Meant(bytes, chunk)) abort();
  if (settings.units != 'M' || settings.bad_sums) {
    if (!heard.records.empty()) abort();
    return 0;
  }
  Record meant = {kUnit, 0, 0, sent.u, sent.v, sent.w, sent.speed_of_sound, sent.temperature};
  meant.insert(meant.end(), sent.inputs.begin(), sent.inputs.end());
  meant.resize(12);
  meant.push_back(settings.status >= 10 ? 0x40 : settings.status >= 1 ? 0x440 : 0);
  if (heard.records.size() != 1 || !std::equal(meant.begin(), meant.end(), heard.records[0].begin(),
                                               [](double a, double b) { return std::abs(a - b) < 5e-3 + 1e-9; }))
    abort();
  return 0;
}
