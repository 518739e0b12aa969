#include "serial/gpsdevice.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <utility>

#include "emulators/gps_receiver.h"
#include "emulators/poll_runner.h"
#include "emulators/virtual_time.h"
#include "tests/support/captured_output.h"
#include "tests/support/error_text.h"
#include "tests/support/fake_device.h"

// What sentences mean, those of real receivers among them, is held against a second form in fuzz/gps_fuzz.cpp.

namespace {

constexpr auto* Sum = &GPSReceiver::Sentence;

// What a listener is told, a line each.
struct Log : GPSDevice::Listener {
  void GotGPSData(const GPSData& data) override {
    std::vector<double> values = {data.seconds + data.nanoseconds / 1e9, double(data.errorFlags)};
    values.insert(values.end(), data.values.begin(), data.values.end());
    Keep("data", values);
  }
  void GotGPSTime(const TimeVal& time) override { Keep("time", {time.seconds + time.nanoseconds / 1e9}); }
  void GotGPSNoFix() override { Keep("no fix", {}); }
  void GotGPSSatellites(const std::vector<GPSDevice::SatStatus>& satellites) override {
    std::vector<double> values;
    for (const auto& s : satellites)
      values.insert(values.end(), {s.prn + 0., s.elevation + 0., s.azimuth + 0., s.snr + 0.});
    Keep("satellites", values);
  }
  void Keep(const std::string& kind, const std::vector<double>& values) {
    ++count[kind];
    std::ostringstream line;
    line.precision(12);
    line << kind;
    for (const double value : values) line << ' ' << value;
    told += line.str() + '\n';
  }
  std::map<std::string, int> count;
  std::string told;
};

void Feed(GPSDevice& device, const std::string& bytes) {
  device.ReceivedChars(device.Reader(), bytes.data(), static_cast<int>(bytes.size()));
}

// A device whose other end is in the test's hand.
struct Bench {
  explicit Bench(int type = GPSDevice::TypeGarmin, bool verbose = false) : device(pty->Path(), type, verbose, true) {
    time.SetGrace(20);
    device.RegisterListener(&log);
  }
  VirtualTime time;
  std::optional<Pty> pty{std::in_place};
  GPSDevice device;
  Log log;
};

TEST(GPSDevice, AReceiverIsFoundAndHeard) {
  const struct {
    GPSReceiver::Make make;
    int rate, found;  // its rate at first, and the second in which it is found
    size_t commands;  // that reach it
    bool fix = true;
  } rows[] = {{GPSReceiver::Hemisphere, 57600, 0, 10}, {GPSReceiver::Garmin, 38400, 0, 7},
              {GPSReceiver::Garmin, 4800, 9, 8},       {GPSReceiver::Garmin, 9600, 14, 8},
              {GPSReceiver::Garmin, 19200, 19, 8},     {GPSReceiver::Garmin, 38400, 0, 7, false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.rate);
    VirtualTime time;
    time.SetGrace(10);
    GPSReceiver receiver(row.make, row.rate);
    receiver.SetFix(row.fix);
    GPSDevice device(receiver.Path(), row.make, false, row.fix);
    Log log;
    device.RegisterListener(&log);
    PollUntil([&] { return log.count["data"] > 0; }, 30'000);
    EXPECT_EQ(time.Elapsed() / 1'000, row.found);
    PollFor(10'000);
    EXPECT_EQ(receiver.Rate(), row.make == GPSReceiver::Garmin ? 38400 : 57600);
    EXPECT_EQ(receiver.Commands().size(), row.commands);
    EXPECT_GE(log.count["data"], row.make == GPSReceiver::Garmin ? 6 : 99);
    EXPECT_GE(log.count[row.fix ? "time" : "no fix"], 6);
    EXPECT_EQ(log.count["satellites"] > 1, row.fix);  // switched off by $PGRMO
    EXPECT_EQ(std::regex_search(log.told, std::regex(" -19.49065 24.1731166667 100.3[0-9]* 6 ")), row.fix);
  }
}

// Another rate than the four starts it anew.
TEST(GPSDevice, AFailedSearchStaysAt38400AndStillListens) {
  const CapturedOutput output;
  Bench bench(GPSDevice::TypeGarmin, true);
  bench.pty->SetSpeed(115200);
  for (const int rate : {115200, 38400, 4800, 9600, 19200, 38400, 38400}) {
    EXPECT_EQ(bench.pty->Speed(), rate);
    PollFor(5'000);
  }
  Feed(bench.device, "\nnoise\r" + Sum("GPRMC,1,V"));
  EXPECT_EQ(bench.log.told, "no fix\n");
  EXPECT_EQ(output.Text(),
            "GPS: defaulting to 38400 baud\nGPS: trying 4800 baud\nGPS: trying 9600 baud\nGPS: trying 19200 baud\n"
            "GPS: baud search failed\nGPS: defaulting to 38400 baud\nGPS: noise\nGPS: $GPRMC,1,V*2C\n");
}

// The first report has more come in from inside, the third one throws.
TEST(GPSDevice, AListenerMayThrowOrFeedAndNothingIsLeft) {
  struct Restless : Log {
    void GotGPSSatellites(const std::vector<GPSDevice::SatStatus>& satellites) override {
      if (!std::exchange(fed, true))
        Feed(bench.device, Sum("GPGSV,2,2,02,2,2,2,2") + Sum("GPGSV,2,1,01,4,4,4,4") + "?");
      Log::GotGPSSatellites(satellites);
      if (count["satellites"] == 3) throw std::runtime_error("enough");
    }
    Bench bench;
    bool fed = false;
  } restless;
  GPSDevice& device = restless.bench.device;
  device.RegisterListener(&restless);
  const std::string more = Sum("GPGSV,2,2,01,5,5,5,5");
  Feed(device, Sum("GPGSV,1,1,01,1,1,1,1"));
  EXPECT_THROW(Feed(device, '\r' + more), std::runtime_error);
  Feed(device, more);
  EXPECT_EQ(restless.told,
            "satellites 1 1 1 1 2 2 2 2\nsatellites 1 1 1 1\n"
            "satellites 4 4 4 4 5 5 5 5\n"
            "satellites 4 4 4 4 5 5 5 5 5 5 5 5\n");
}

TEST(GPSDevice, APortThatRefusesThrows) {
  FakeDevice port;
  const Bench bench;
  const CapturedOutput errors(STDERR_FILENO);
  port.failing = "cfsetospeed";
  EXPECT_EQ(ErrorText([] { PollFor(5'000); }), "Unable to configure GPS: " + bench.pty->Path());
  EXPECT_THROW(Bench(), std::runtime_error);
}

// The search at 4800 bps, the restart that follows it, and the moment between them.
TEST(GPSDevice, APortThatGoesEndsTheSearch) {
  for (const bool found : {false, true})
    for (const bool gone_before : {true, false}) {
      const CapturedOutput output;
      Bench bench(GPSDevice::TypeGarmin, true);
      bench.pty->SetSpeed(4800);
      if (gone_before) bench.pty.reset();
      if (found) Feed(bench.device, Sum("GPRMC,1,V"));
      bench.pty.reset();
      EXPECT_EQ(bench.device.IsActive(), !found || !gone_before);
      for (int i = 0; i < 2; ++i) bench.device.HandleTimeout();  // before the loop knows
      bench.device.SetTimeout(-1);
      bench.time.SetGrace(0);
      PollFor(60'000);
      EXPECT_FALSE(bench.device.IsActive());
      EXPECT_EQ(bench.time.Sleeps(), 1);
      EXPECT_TRUE(bench.device.Reader().IsHungUp());
      EXPECT_EQ(output.Text().find("baud"), std::string::npos);
      EXPECT_EQ(bench.log.told, found ? "no fix\n" : "");
    }
}

}  // namespace
