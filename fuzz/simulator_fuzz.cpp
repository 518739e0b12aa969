// Moments of the analyser into the simulator, and what the devices behind it tell: the pulse, the time and the fix come
// back with the moment that went in, to the hundredth of a second, and each record gives one message of the anemometer.
//
// Input: moments of 8 bytes, seconds and nanoseconds; with the highest byte's low bit the nanoseconds are a whole
// number of hundredths.

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "analyser/simulator.h"
#include "emulators/fifo.h"
#include "emulators/pty.h"

namespace {

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
  GPSDevice gps{gps_line.Path(), GPSDevice::TypeHemisphere, false, false};
  PPSDevice pps{fifo.Path(), false};
  SonicDevice sonic{sonic_line.Path(), 0, 57600, false};
  Simulator simulator{&gps, &pps, &sonic};
  int pulses = 0, times = 0, fixes = 0, messages = 0;
  TimeVal pulse, told, fix;
  bool dated = false;  // by the last time that was told, which a fix rests on
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Bench bench;
  for (; size >= 8; data += 8, size -= 8) {
    CH4Data record;
    std::memcpy(&record.seconds, data, 4);
    std::memcpy(&record.nanoseconds, data + 4, 4);
    if ((data[7] & 1) != 0) record.nanoseconds = record.nanoseconds / 7 % 100 * kHundredth;
    bench.pulses = bench.times = bench.fixes = bench.messages = 0;
    bench.simulator.GotCH4Data(record);
    const bool top = record.nanoseconds == 0;
    if (bench.pulses != (top ? 1 : 0) || bench.fixes != 0 || bench.messages != 0) abort();
    if (top && bench.pulse != TimeVal(record.seconds)) abort();
    const bool dated = bench.dated;
    const int64_t day = bench.told.seconds / kDay * kDay;
    bench.simulator.HandleTimeout();
    if (bench.messages != 1) abort();
    // Beyond these a sentence can't tell the moment.
    if (record.seconds < 0 || record.nanoseconds < 0 || record.nanoseconds >= kSecond) {
      bench.dated = false;
      continue;
    }
    const int hundredths = record.nanoseconds / kHundredth;
    if (bench.fixes != 1 || bench.times != (hundredths == 0 ? 1 : 0)) abort();
    // The fix comes first.
    TimeVal fix(static_cast<int32_t>(day + record.seconds % kDay), hundredths * kHundredth);
    fix._normalize();
    if (dated && bench.fix != fix) abort();
    if (hundredths == 0 && bench.told != TimeVal(record.seconds)) abort();
  }
  return 0;
}
