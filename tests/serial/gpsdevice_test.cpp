#include "serial/gpsdevice.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <optional>
#include <sstream>
#include <utility>

#include "emulators/gps_receiver.h"
#include "emulators/poll_runner.h"
#include "emulators/virtual_time.h"
#include "tests/support/captured_output.h"
#include "tests/support/error_text.h"
#include "tests/support/fake_device.h"

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
    EXPECT_EQ(log.told.find(" -19.49065 24.1731166667 100.3 6 ") != std::string::npos, row.fix);
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

TEST(GPSDevice, RealSentencesComeOutAsTheySay) {
  const std::pair<const char*, const char*> rows[] = {
      {R"($GPRMC,113258,A,3238.9148,N,10822.4466,W,005.3,247.1,181022,009.3,E*6B
$GPGGA,113258,3238.9148,N,10822.4466,W,2,08,1.1,1577.4,M,-24.6,M,,*4D
$GPGSA,A,3,02,05,11,12,18,20,25,29,,,,,1.4,1.1,0.9*3D
$GPGSV,3,1,11,02,60,319,36,05,77,132,38,11,29,052,29,12,46,186,46*74
$GPGSV,3,2,11,18,19,264,16,20,48,049,35,25,58,245,39,29,45,323,38*7B
$GPGSV,3,3,11,06,01,064,00,13,09,132,00,15,10,164,00*41
$PGRME,7.6,M,41.7,M,42.4,M*2F
$PGRMV,-2.5,-1.1,0.3*58
$PGRMT,GPS 15x-W software ver. 4.20,,,,,,,,*6A
$GPGGA,113259,3238.9145,N,10822.4482,W,2,08,1.1,1577.9,M,-24.6,M,,*46
$GPRMC,113259,A,3238.9145,N,10822.4482,W,005.0,246.3,181022,009.3,E*6D
$GPGSA,A,3,02,05,11,12,18,20,25,29,,,,,1.4,1.1,0.9*3D
)",
       R"(time 1666092778
data 1666092778 0 32.64858 -108.37411 1577.4 8 1.1 -24.6 2.72655555556 247.1 0 0
satellites 2 60 319 36 5 77 132 38 11 29 52 29 12 46 186 46 18 19 264 16 20 48 49 35 25 58 245 39 29 45 323 38)"
       R"( 6 1 64 0 13 9 132 0 15 10 164 0
data 1666092779 0 32.648575 -108.374136667 1577.9 8 1.1 -24.6 2.72655555556 247.1 0 0
time 1666092779
)"},
      {R"($GPRMC,165007.000,A,4143.6058,N,08338.0778,W,0.55,36.58,180710,,,A*4F
$GPGGA,165008.000,4143.6059,N,08338.0786,W,1,06,1.5,204.1,M,-33.7,M,,0000*6A
$GPGSA,A,3,31,16,29,23,20,32,,,,,,,2.8,1.5,2.4*36
$GPGSV,3,1,10,16,74,173,,23,42,310,,31,40,066,12,32,39,218,*7B
$GPGSV,3,2,10,20,38,248,,13,16,310,,06,15,156,,29,15,048,*7A
$GPGSV,3,3,10,03,08,171,,14,06,129,*7D
$GPRMC,165010.000,V,4143.6057,N,08338.0788,W,0.60,231.03,180710,,,E*67
$GPGGA,165019.000,,,,,0,00,,,M,0.0,M,,0000*5C
$GPGSA,A,1,,,,,,,,,,,,,,,*1E
$GPRMC,165019.000,V,,,,,,,180710,,,N*48
$GPRMC,165045.000,A,4143.6024,N,08338.0864,W,2.19,176.03,180710,,,A*71
$GPGGA,165045.000,4143.6024,N,08338.0864,W,1,04,2.0,183.5,M,-33.7,M,,0000*66
)",
       R"(time 1279471807
data 1279471808 0 41.726765 -83.6346433333 204.1 6 1.5 -33.7 0.282944444444 36.58 0 0
satellites 16 74 173 0 23 42 310 0 31 40 66 12 32 39 218 0 20 38 248 0 13 16 310 0 6 15 156 0 29 15 48 0)"
       R"( 3 8 171 0 14 6 129 0 0 0 0 0 0 0 0 0
no fix
data 1279471819 0 0 0 0 0 0 0 0.282944444444 36.58 0 0
no fix
time 1279471845
data 1279471845 0 41.7267066667 -83.6347733333 183.5 4 2 -33.7 1.12663333333 176.03 0 0
)"}};
  for (const auto& [sentences, told] : rows) {
    Bench bench;
    std::istringstream lines(sentences);
    for (std::string line; std::getline(lines, line);) Feed(bench.device, line + "\r\n");
    EXPECT_EQ(bench.log.told, told);
  }
}

}  // namespace
