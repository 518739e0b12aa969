// Moments of the analyser into the simulator. The devices behind it print what they get: the texts must be those that a
// plain form writes with the calendar of the standard library. And what their listeners are told comes back with the
// moment that went in, to the hundredth of a second. A record that comes before the timer takes the place of the one
// before it, and a pulse without a listener is nobody's.
//
// Input: moments of 8 bytes, seconds and nanoseconds; with the highest byte's low bit the nanoseconds are a whole
// number of hundredths.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>

#include "analyser/simulator.h"
#include "emulators/fifo.h"
#include "emulators/gps_receiver.h"
#include "emulators/pty.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

constexpr int64_t kDay = 86'400;               // seconds
constexpr int32_t kSecond = 1'000'000'000;     // nanoseconds
constexpr int32_t kHundredth = kSecond / 100;  // likewise

struct Bench : GPSDevice::Listener, PPSDevice::Listener, SonicDeviceListener {
  Bench() {
    gps.RegisterListener(this);
    pps.RegisterListener(this);
    sonic.RegisterListener(this);
  }
  ~Bench() noexcept override {}  // what it holds could throw

  void GotPPS(const TimeVal& time) override { ++pulses, pulse = time; }
  void GotGPSTime(const TimeVal& time) override { ++times, told = time, dated = true; }
  void GotGPSNoFix() override { abort(); }
  void GotGPSData(const GPSData& data) override { ++fixes, fix = TimeVal(data.seconds, data.nanoseconds); }
  void GotSonicData(int, const SonicData&) override { ++messages; }

  Pty gps_line, sonic_line;
  Fifo fifo;
  GPSDevice gps{gps_line.Path(), GPSDevice::TypeHemisphere, true, false};
  PPSDevice pps{fifo.Path(), false};
  SonicDevice sonic{sonic_line.Path(), 0, 57600, true};
  Simulator simulator{&gps, &pps, &sonic};
  int pulses = 0, times = 0, fixes = 0, messages = 0;
  TimeVal pulse, told, fix;
  bool dated = false;  // by the last time that was told, which a fix rests on
};

// As a verbose device shows it, its sum in lower case.
std::string Shown(const std::string& body) {
  std::string sentence = GPSReceiver::Sentence(body);
  sentence.resize(sentence.size() - 2);
  for (size_t i = sentence.size() - 2; i < sentence.size(); ++i)
    if (sentence[i] >= 'A') sentence[i] = static_cast<char>(sentence[i] + ('a' - 'A'));
  return "GPS: " + sentence + '\n';
}

std::string Meant(const CH4Data& record) {
  using namespace std::chrono;
  const sys_seconds moment{seconds(record.seconds)};
  const year_month_day date(floor<days>(moment));
  const hh_mm_ss clock(moment - floor<days>(moment));
  const int hundredths = record.nanoseconds / kHundredth;
  char time[32], day[32];
  std::snprintf(time, sizeof time, "%02d%02d%02d.%02d", int(clock.hours().count()), int(clock.minutes().count()),
                int(clock.seconds().count()), hundredths);
  std::snprintf(day, sizeof day, "%02u%02u%02d", unsigned(date.day()), unsigned(date.month()), int(date.year()) % 100);
  const std::string at = time;
  std::string meant = Shown("GPGGA," + at + ",1929.439,S,02410.387,E,1,04,2.8,100.00,M,-33.9,M,,0000");
  if (hundredths == 0) meant += Shown("GPRMC," + at + ",A,1929.459,S,02410.381,E,74.00,16.78," + day + ",0.0,E,A");
  return meant + "Sonic: <STX>Q,+000.013,+000.048,+000.008,M,+346.66,+025.19,00,<ETX>11\n";
}

std::string Simulated(Bench& bench, const CH4Data& record) {
  std::ostringstream printed;
  std::streambuf* const output = std::cout.rdbuf(printed.rdbuf());
  bench.pulses = bench.times = bench.fixes = bench.messages = 0;
  bench.pps.RegisterListener(nullptr);
  bench.simulator.GotCH4Data({});
  bench.pps.RegisterListener(&bench);
  bench.simulator.GotCH4Data(record);
  bench.simulator.HandleTimeout();
  std::cout.rdbuf(output);
  return printed.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Bench bench;
  for (; size >= 8; data += 8, size -= 8) {
    CH4Data record;
    std::memcpy(&record.seconds, data, 4);
    std::memcpy(&record.nanoseconds, data + 4, 4);
    if ((data[7] & 1) != 0) record.nanoseconds = record.nanoseconds / 7 % 100 * kHundredth;
    const bool dated = bench.dated;
    const int64_t day = bench.told.seconds / kDay * kDay;
    REQUIRE(Simulated(bench, record) == Meant(record));
    const bool top = record.nanoseconds == 0;
    REQUIRE(bench.pulses == (top ? 1 : 0) && (!top || bench.pulse == TimeVal(record.seconds)) && bench.messages == 1);
    // Beyond these a sentence can't tell the moment.
    if (record.seconds < 0 || record.nanoseconds < 0 || record.nanoseconds >= kSecond) {
      bench.dated = false;
      continue;
    }
    const int hundredths = record.nanoseconds / kHundredth;
    REQUIRE(bench.fixes == 1 && bench.times == (hundredths == 0 ? 1 : 0));
    // The fix comes first, with the day before. No system has the same for what a count of 32 bits can't hold.
    const int64_t moment = day + record.seconds % kDay;
    TimeVal fix(static_cast<int32_t>(moment), hundredths * kHundredth);
    fix._normalize();
    REQUIRE(!dated || bench.fix == fix || moment > INT32_MAX);
    REQUIRE(hundredths != 0 || bench.told == TimeVal(record.seconds));
  }
  return 0;
}
