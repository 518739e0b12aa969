// Bytes from a GPS receiver's line, for either make: however they are cut, the listener is told what a plain second
// form of the device tells, and the search ends where it ends there. The second form reads its fields by the standard
// library's formatted input, which the device's own field readers promise to equal; they are also held against it on
// the bytes as they are, with fields of any kind in any order.
//
// Input: a byte for the make, a byte for the size of a chunk, and what comes on the line. With the high bit of the
// first byte, each line of it is the body of a sentence that gets its "$" and its sum here.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include "emulators/gps_receiver.h"
#include "emulators/pty.h"
#include "fuzz/stream_fields.h"
#include "serial/gpsdevice.h"
#include "serial/serial_fields.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

struct Log : GPSDevice::Listener {
  void GotGPSData(const GPSData& data) override {
    Keep('D');
    Keep(data.seconds);
    Keep(data.nanoseconds);
    for (const double value : data.values) Keep(value);
    Keep(data.errorFlags);
    REQUIRE(data.reserved16 == 0 && data.reserved8 == GPSData().reserved8);
  }
  void GotGPSTime(const TimeVal& time) override {
    Keep('T');
    Keep(time);
  }
  void GotGPSNoFix() override { Keep('N'); }
  void GotGPSSatellites(const std::vector<GPSDevice::SatStatus>& satellites) override {
    Keep('S');
    for (const auto& satellite : satellites) Keep(satellite);
  }

  template <class Value>
  void Keep(const Value& value) {
    told.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  std::string told;
};

int32_t Cut(double value) {
  using Limits = std::numeric_limits<int32_t>;
  return static_cast<int32_t>(std::clamp<double>(std::trunc(value), Limits::min(), Limits::max()));
}

// What the device should tell.
class SecondForm {
 public:
  void Take(const std::string& bytes) {
    std::string text;
    for (const char c : bytes)
      if (c == '\r') {
        if (text.size() > 10) Sentence(text);
        text.clear();
      } else if (c != '\n') {
        text += c;
      }
  }

  Log log;
  bool searching = true;

 private:
  void Sentence(const std::string& text) {
    const size_t star = text.size() - 3;
    const bool positioning = text.substr(0, 3) == "$GP" && text[star] == '*';
    if (positioning || text.substr(0, 6) == "$PGRMC") searching = false;
    if (!positioning) return;
    unsigned char sum = 0;
    for (size_t i = 1; i < star; ++i) sum = static_cast<unsigned char>(sum ^ text[i]);
    if (HexDigit(text[star + 1]) * 16 + HexDigit(text[star + 2]) != sum) return;
    std::istringstream in(text.substr(7));
    in.imbue(std::locale::classic());
    const std::string name = text.substr(3, 3);
    if (name == "GGA") GGA(in);
    if (name == "GSV") GSV(in);
    if (name == "RMC") RMC(in);
  }

  void RMC(std::istream& in) {
    const double time = ReadDouble(in);
    const char status = ReadChar(in);
    for (int i = 0; i < 2; ++i) ReadDouble(in), ReadChar(in);
    const double knots = ReadDouble(in), degrees = ReadDouble(in);
    const uint32_t date = ReadUnsigned(in);
    ReadDouble(in), ReadChar(in), ReadChar(in);
    if (in.fail() || status != 'A') return log.GotGPSNoFix();
    day = static_cast<int>(date / 10'000);
    month = static_cast<int>(date % 10'000 / 100);
    year = static_cast<int>(date % 100) + (date % 100 < 70 ? 2000 : 1900);
    speed = knots * 0.514444444444444;
    course = degrees;
    log.GotGPSTime(Moment(time));
  }

  void GGA(std::istream& in) {
    GPSData data;
    const double time = ReadDouble(in);
    for (int i = 0; i < 2; ++i) {
      const double packed = ReadDouble(in);
      const int32_t whole = Cut(packed);
      const double place = whole / 100 + ((packed - whole) + whole % 100) / 60;
      const char side = ReadChar(in);
      data.values[i] = side == 'S' || side == 'W' ? -place : place;
    }
    const char quality = ReadChar(in);
    if (quality == '\0') data.errorFlags = 2176;
    if (quality == '\1') data.errorFlags = 128;
    for (const size_t i : {3, 4, 2}) data.values[i] = ReadDouble(in);
    const char unit = ReadChar(in);
    data.values[5] = ReadDouble(in);
    const char other_unit = ReadChar(in);
    data.values[6] = speed;
    data.values[7] = course;
    data.values[8] = ReadDouble(in);
    data.values[9] = ReadUnsigned(in);
    if (in.fail() || unit != 'M' || other_unit != 'M') return;
    const TimeVal moment = Moment(time);
    data.seconds = moment.seconds;
    data.nanoseconds = moment.nanoseconds;
    log.GotGPSData(data);
  }

  void GSV(std::istream& in) {
    const uint32_t total = ReadUnsigned(in), number = ReadUnsigned(in);
    ReadUnsigned(in);
    if (number == 1) satellites.clear();
    for (int i = 0; i < 4; ++i) {
      int32_t field[4];
      for (int32_t& value : field) value = ReadInteger(in);
      if (in) satellites.push_back({field[0], field[1], field[2], field[3]});
    }
    if (number == total) log.GotGPSSatellites(satellites);
  }

  TimeVal Moment(double packed) const {
    using namespace std::chrono;
    double whole;
    const int64_t hundredths = Cut(std::modf(packed, &whole) * 100 + 0.5);
    const int64_t time = Cut(whole);
    const auto first = std::chrono::year(year) / 1 / 1 + months(month - 1);
    const int64_t days = sys_days(first).time_since_epoch().count() + day - 1;
    int64_t seconds = days * 86'400 + time / 10'000 * 3'600 + time % 10'000 / 100 * 60 + time % 100;
    if (sizeof(time_t) == 4 && static_cast<int32_t>(seconds) != seconds) seconds = -1;
    TimeVal moment(static_cast<int32_t>(seconds), static_cast<int32_t>(hundredths * 10'000'000));
    moment._normalize();
    return moment;
  }

  int year = 0, month = 0, day = 0;
  double speed = 0, course = 0;
  std::vector<GPSDevice::SatStatus> satellites;
};

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
    switch (kinds / 2 % 4) {
      case 0:
        REQUIRE(GPSReadDouble(fields) == ReadDouble(in));
        break;
      case 1:
        REQUIRE(GPSReadChar(fields) == ReadChar(in));
        break;
      case 2:
        REQUIRE(GPSReadUnsigned(fields) == ReadUnsigned(in));
        break;
      default:
        REQUIRE(GPSReadInteger(fields) == ReadInteger(in));
    }
    REQUIRE(fields.fail() == in.fail());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  static const Pty pty;
  std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
  CompareFields(bytes, data[1]);
  if ((data[0] & 0x80) != 0) bytes = Sentences(bytes);
  bytes += '\r';
  GPSDevice device(pty.Path(), data[0] % 3, false, true);
  Log log;
  device.RegisterListener(&log);
  const size_t chunk = 1 + data[1];
  for (size_t at = 0; at < bytes.size(); at += chunk)
    device.ReceivedChars(device.Reader(), bytes.data() + at, static_cast<int>(std::min(chunk, bytes.size() - at)));
  SecondForm expected;
  expected.Take(bytes);
  REQUIRE(log.told == expected.log.told);
  REQUIRE(device.IsActive() == (data[0] % 3 == GPSDevice::TypeGarmin && expected.searching));
  return 0;
}
