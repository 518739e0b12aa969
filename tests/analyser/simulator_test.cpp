#include "analyser/simulator.h"

#include <gtest/gtest.h>

#include "emulators/analyser.h"
#include "emulators/fifo.h"
#include "emulators/pty.h"
#include "serial/sonicstats.h"
#include "tests/support/captured_output.h"
#include "tests/support/poll_runner.h"
#include "tests/support/virtual_time.h"

namespace {

constexpr int kMinute = 60'000;  // milliseconds

// An owner of an analyser, the simulator and what it feeds.
struct Station : CH4Device::Listener, GPSDevice::Listener, PPSDevice::Listener, SonicDeviceListener {
  explicit Station(bool verbose)
      : gps(gps_line.Path(), GPSDevice::TypeGarmin, verbose, false), sonic(sonic_line.Path(), 2, 9600, verbose) {
    gps.RegisterListener(this);
    pps.RegisterListener(this);
    sonic.RegisterListener(this);
  }
  ~Station() noexcept override {}  // what it holds could throw

  void GotCH4Data(const CH4Data& data) override {
    ++records;
    moment = TimeVal(data.seconds, data.nanoseconds);
    simulator.GotCH4Data(data);
  }
  void GotPPS(const TimeVal& time) override {
    ++pulses;
    EXPECT_EQ(moment, time);
  }
  void GotGPSTime(const TimeVal& time) override {
    ++times;
    EXPECT_EQ(moment, time);
  }
  void GotGPSData(const GPSData& data) override {
    ++fixes;
    EXPECT_TRUE(times == 0 || moment == TimeVal(data.seconds, data.nanoseconds)) << moment;  // dated by the last time
  }
  void GotSonicData(int, const SonicData& data) override {
    ++messages;
    EXPECT_EQ((std::array<double, 9>{0.013, 0.048, 0.008, 346.66, 25.19}), data.values);
    EXPECT_EQ(0U, data.errorFlags);
    SonicData stamped = data;
    stamped.seconds = moment.seconds;
    stamped.nanoseconds = moment.nanoseconds;
    stats.Update(stamped);
  }

  VirtualTime clock;
  Pty gps_line, sonic_line;
  Fifo fifo;
  GPSDevice gps;
  PPSDevice pps{fifo.Path(), false};
  SonicDevice sonic;
  Simulator simulator{&gps, &pps, &sonic};
  SonicStats stats;
  TimeVal moment;  // of the last record
  int records = 0, pulses = 0, times = 0, fixes = 0, messages = 0;
};

CH4Data At(int32_t seconds, int32_t nanoseconds) {
  CH4Data data;
  data.seconds = seconds;
  data.nanoseconds = nanoseconds;
  return data;
}

TEST(Simulator, TheTextsStandAsTheyAre) {
  const CapturedOutput output;
  Station station(true);
  station.GotCH4Data(At(1'772'409'599, 0));  // 2026-03-01 23:59:59
  EXPECT_EQ(1, station.pulses);
  PollFor(9);
  EXPECT_EQ("", output.Text());
  PollFor(1);
  const std::string sonic = "Sonic: <STX>Q,+000.013,+000.048,+000.008,M,+346.66,+025.19,00,<ETX>11\n";
  const std::string full =
      "GPS: $GPGGA,235959.00,1929.439,S,02410.387,E,1,04,2.8,100.00,M,-33.9,M,,0000*6d\n"
      "GPS: $GPRMC,235959.00,A,1929.459,S,02410.381,E,74.00,16.78,010326,0.0,E,A*22\n" +
      sonic;
  EXPECT_EQ(full, output.Text());
  // The second of these takes the place of the first one, and nobody is there for its pulse.
  station.pps.RegisterListener(nullptr);
  station.GotCH4Data(At(1'772'323'200, 0));
  PollFor(5);
  station.GotCH4Data(At(1'772'323'200, 100'000'000));
  PollFor(30);
  EXPECT_EQ(full + "GPS: $GPGGA,000000.10,1929.439,S,02410.387,E,1,04,2.8,100.00,M,-33.9,M,,0000*6d\n" + sonic,
            output.Text());
}

TEST(Simulator, AnHourAgreesRecordByRecordWithWhatTheAnalyserSent) {
  Station station(false);
  Analyser analyser;
  CH4Device ch4(false);
  ch4.RegisterListener(&station);
  ch4.GetHead() = Head(&ch4, analyser.Port(), false);
  ch4.GetHead().Connect(analyser.Host());
  const auto behind = [&] {
    station.clock.SetGrace(station.records == analyser.LinesSent() ? 0 : 100);
    return false;
  };
  PollUntil(behind, kMinute / 100);
  PollUntil(behind, 60 * kMinute);
  PollUntil([&] { return station.messages == analyser.LinesSent(); });
  EXPECT_LT(36'000, station.records);
  EXPECT_EQ(analyser.LinesSent(), station.records);
  EXPECT_EQ(station.records, station.messages);
  EXPECT_EQ(station.records, station.fixes);
  EXPECT_EQ(3'600, station.pulses);
  EXPECT_EQ(3'600, station.times);
  EXPECT_NEAR(100, station.stats.MeanInterval(), 1e-9);
  EXPECT_NEAR(0, station.stats.IntervalRange(), 1e-9);
}

}  // namespace
