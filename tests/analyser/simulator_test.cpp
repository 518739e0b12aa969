#include "analyser/simulator.h"

#include <gtest/gtest.h>

#include "emulators/analyser.h"
#include "emulators/fifo.h"
#include "emulators/poll_runner.h"
#include "emulators/pty.h"
#include "emulators/virtual_time.h"
#include "serial/sonicstats.h"

namespace {

constexpr int kHour = 3'600'000;  // milliseconds

// An owner of an analyser's records, of the simulator and of what it feeds. What is told must agree with the record.
struct Station : CH4Device::Listener, GPSDevice::Listener, PPSDevice::Listener, SonicDeviceListener {
  Station() {
    gps.RegisterListener(this);
    pps.RegisterListener(this);
    sonic.RegisterListener(this);
  }
  ~Station() noexcept override {}  // what it holds could throw

  void GotCH4Data(const CH4Data& data) override {
    ++records;
    came = clock.Elapsed();
    moment = TimeVal(data.seconds, data.nanoseconds);
    simulator.GotCH4Data(data);
  }
  void Agree(int& count, const TimeVal& time, int late) {
    ++count;
    if (time != moment || clock.Elapsed() != came + late) ADD_FAILURE() << time << " for " << moment;
  }
  void GotPPS(const TimeVal& time) override { Agree(pulses, time, 0); }
  void GotGPSTime(const TimeVal& time) override { Agree(times, time, 10); }
  void GotGPSData(const GPSData& data) override {
    // Dated by the last time that was told.
    Agree(fixes, times > 0 ? TimeVal(data.seconds, data.nanoseconds) : moment, 10);
  }
  void GotSonicData(int, const SonicData& data) override {
    SonicData stamped = data;
    stamped.seconds = moment.seconds;
    stamped.nanoseconds = moment.nanoseconds;
    stats.Update(stamped);
    Agree(messages, moment, 10);
  }

  VirtualTime clock;
  Pty gps_line, sonic_line;
  Fifo fifo;
  GPSDevice gps{gps_line.Path(), GPSDevice::TypeGarmin, false, false};
  PPSDevice pps{fifo.Path(), false};
  SonicDevice sonic{sonic_line.Path(), 2, 9600, false};
  Simulator simulator{&gps, &pps, &sonic};
  SonicStats stats;
  int64_t came = 0;  // milliseconds
  TimeVal moment;    // of the last record
  int records = 0, pulses = 0, times = 0, fixes = 0, messages = 0;
};

TEST(Simulator, AnHourAgreesRecordByRecordWithWhatTheAnalyserSent) {
  Station station;
  Analyser analyser;
  CH4Device ch4(false);
  ch4.RegisterListener(&station);
  ch4.GetHead() = Head(&ch4, analyser.Port(), false);
  ch4.GetHead().Connect(analyser.Host());
  const auto behind = [&] {
    PollPasses(1);  // sends what is due; the clock goes on only when it has come, however late
    station.clock.SetGrace(station.records == analyser.LinesSent() ? 0 : 100);
    return false;
  };
  PollUntil(behind, kHour + 550);
  EXPECT_EQ(36'005, analyser.LinesSent());
  EXPECT_EQ(36'005, station.records);
  EXPECT_EQ(36'005, station.messages);
  EXPECT_EQ(36'005, station.fixes);
  EXPECT_EQ(3'600, station.pulses);
  EXPECT_EQ(3'600, station.times);
  EXPECT_NEAR(100, station.stats.MeanInterval(), 1e-9);
  EXPECT_NEAR(0, station.stats.IntervalRange(), 1e-9);
}

}  // namespace
