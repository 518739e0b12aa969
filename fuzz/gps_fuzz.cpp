// Bytes from a GPS receiver's line, for either make, in chunks of any size: however they are cut, the listener is told
// the same, and a good sentence behind them is taken. The bytes are also read as fields, beside the standard library's
// formatted input, which the field readers promise to equal.
//
// Input: a byte for the make, a byte for the size of a chunk, and what comes on the line. With the high bit of the
// first byte, each line of it is the body of a sentence that gets its "$" and its sum here.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include "emulators/gps_receiver.h"
#include "emulators/pty.h"
#include "serial/gpsdevice.h"
#include "serial/serial_fields.h"

namespace {

struct Log : GPSDevice::Listener {
  void GotGPSData(const GPSData& data) override {
    Keep(data.seconds);
    Keep(data.nanoseconds);
    for (const double value : data.values) Keep(value);
    Keep(data.errorFlags);
  }
  void GotGPSTime(const TimeVal& time) override { Keep(time); }
  void GotGPSNoFix() override { ++no_fixes; }
  void GotGPSSatellites(const std::vector<GPSDevice::SatStatus>& satellites) override {
    for (const auto& satellite : satellites) Keep(satellite);
  }

  template <class Value>
  void Keep(const Value& value) {
    told.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  std::string told;
  int no_fixes = 0;
};

Log Listen(const Pty& pty, int type, const std::string& bytes, size_t chunk) {
  GPSDevice device(pty.Path(), type, false, true);
  Log log;
  device.RegisterListener(&log);
  for (size_t at = 0; at < bytes.size(); at += chunk)
    device.ReceivedChars(device.Reader(), bytes.data() + at, static_cast<int>(std::min(chunk, bytes.size() - at)));
  const int before = log.no_fixes;
  const std::string good = "\r" + GPSReceiver::Sentence("GPRMC,000000,V");
  device.ReceivedChars(device.Reader(), good.data(), static_cast<int>(good.size()));
  // The "\r" may have completed one more.
  if (log.no_fixes != before + 1 && log.no_fixes != before + 2) abort();
  return log;
}

std::string Sentences(const std::string& bodies) {
  std::string sentences;
  std::istringstream lines(bodies);
  for (std::string body; std::getline(lines, body);) sentences += GPSReceiver::Sentence(body);
  return sentences;
}

void CompareFields(const std::string& text, unsigned int kinds) {
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  FieldStream fields(text);
  for (int field = 0; field < 12; ++field, kinds = kinds * 5 + 1) {
    bool same = false;
    switch (kinds / 2 % 4) {
      case 0:
        same = GPSReadDouble(fields) == GPSReadDouble(in);
        break;
      case 1:
        same = GPSReadChar(fields) == GPSReadChar(in);
        break;
      case 2:
        same = GPSReadUnsigned(fields) == GPSReadUnsigned(in);
        break;
      default:
        same = GPSReadInteger(fields) == GPSReadInteger(in);
    }
    if (!same || fields.fail() != in.fail()) abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  static const Pty pty;
  std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
  CompareFields(bytes, data[1]);
  if ((data[0] & 0x80) != 0) bytes = Sentences(bytes);
  const int type = data[0] % 3;
  const Log whole = Listen(pty, type, bytes, bytes.size() + 1);
  const Log chunks = Listen(pty, type, bytes, 1 + data[1]);
  if (whole.told != chunks.told || whole.no_fixes != chunks.no_fixes) abort();
  return 0;
}
