#include "serial/gpsdevice.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <map>
#include <sstream>
#include <utility>

#include "emulators/gps_receiver.h"
#include "tests/support/captured_output.h"
#include "tests/support/error_text.h"
#include "tests/support/fake_device.h"
#include "tests/support/poll_runner.h"
#include "tests/support/virtual_time.h"

namespace {

constexpr auto* Sum = &GPSReceiver::Sentence;

// What a listener is told, a line each.
std::string Line(std::string line, const std::vector<double>& values) {
  for (const double value : values) line += ' ' + std::to_string(value);
  return line + '\n';
}

struct Log : GPSDevice::Listener {
  void GotGPSData(const GPSData& data) override {
    std::vector<double> values = {data.seconds + data.nanoseconds / 1e9, double(data.errorFlags)};
    values.insert(values.end(), data.values.begin(), data.values.end());
    Keep("data", values);
  }
  void GotGPSTime(const TimeVal& time) override { Keep("time", {time.seconds + time.nanoseconds / 1e9}); }
  void GotGPSNoFix() override { Keep("no fix", {}); }
  void GotGPSSatellites(const std::vector<GPSDevice::SatStatus>& satellites) override {
    const auto* const first = reinterpret_cast<const int*>(satellites.data());  // four of each
    Keep("satellites", {first, first + 4 * satellites.size()});
  }
  void Keep(const std::string& kind, const std::vector<double>& values) {
    ++count[kind];
    told += Line(kind, values);
  }
  std::map<std::string, int> count;
  std::string told;
};

void Feed(GPSDevice& device, const std::string& bytes) {
  device.ReceivedChars(device.Reader(), bytes.data(), static_cast<int>(bytes.size()));
}

// A device whose other end is in the test's hand.
struct Bench {
  explicit Bench(int type = GPSDevice::TypeGarmin, bool verbose = false) : device(pty.Path(), type, verbose, true) {
    time.SetGrace(20);
    device.RegisterListener(&log);
  }
  VirtualTime time;
  Pty pty;
  GPSDevice device;
  Log log;
};

TEST(GPSDevice, AReceiverIsFoundAndHeard) {
  const struct {
    GPSReceiver::Make make;
    int rate, found;  // its rate at first, and the second in which it is found
    bool fix = true;
  } rows[] = {{GPSReceiver::Hemisphere, 57600, 0}, {GPSReceiver::Garmin, 38400, 1},
              {GPSReceiver::Garmin, 4800, 10},     {GPSReceiver::Garmin, 9600, 15},
              {GPSReceiver::Garmin, 19200, 20},    {GPSReceiver::Garmin, 38400, 1, false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.rate);
    VirtualTime time;
    time.SetGrace(4);
    GPSReceiver receiver(row.make, row.rate);
    receiver.SetFix(row.fix);
    GPSDevice device(receiver.Path(), row.make, false, row.fix);
    Log log;
    device.RegisterListener(&log);
    PollUntil([&] { return log.count["data"] > 0; }, 30'000);
    EXPECT_EQ(time.Elapsed() / 1'000, row.found);
    PollFor(10'000);
    EXPECT_EQ(receiver.Rate(), row.make == GPSReceiver::Garmin ? 38400 : 57600);
    EXPECT_GE(log.count["data"], row.make == GPSReceiver::Garmin ? 6 : 99);
    EXPECT_GE(log.count[row.fix ? "time" : "no fix"], 6);
    EXPECT_EQ(log.count["satellites"] > 1, row.fix);  // switched off by $PGRMO
    EXPECT_EQ(log.told.find(" -19.490650 24.173117 100.300000 6.000000 ") != std::string::npos, row.fix);
  }
}

// Another rate than the four starts it anew.
TEST(GPSDevice, AFailedSearchStaysAt38400AndStillListens) {
  const CapturedOutput output;
  Bench bench(GPSDevice::TypeGarmin, true);
  bench.pty.SetSpeed(115200);
  for (const int rate : {115200, 38400, 4800, 9600, 19200, 38400, 38400}) {
    EXPECT_EQ(bench.pty.Speed(), rate);
    PollFor(5'000);
  }
  Feed(bench.device, "\nnoise\r" + Sum("GPRMC,1,V"));
  EXPECT_EQ(bench.log.told, "no fix\n");
  EXPECT_EQ(output.Text(),
            "GPS: defaulting to 38400 baud\nGPS: trying 4800 baud\nGPS: trying 9600 baud\nGPS: trying 19200 baud\n"
            "GPS: baud search failed\nGPS: defaulting to 38400 baud\nGPS: noise\nGPS: $GPRMC,1,V*2C\n");
}

TEST(GPSDevice, WhatLooksLikeASentenceEndsTheSearch) {
  for (const auto& [input, ends] :
       {std::pair("$GPVTG,1*00\r\n", true), {"$PGRMCxxxxx\r", true}, {"$GPVTG,*00\r", false}}) {
    Bench bench;
    Feed(bench.device, input);
    EXPECT_EQ(bench.device.IsActive(), !ends) << input;
  }
}

std::string RMC(const std::string& time, const std::string& date) {
  return Sum("GPRMC," + time + ",A,1,N,1,E,10,90.5," + date + ",,,A");
}
std::string GGA(const std::string& quality, const std::string& place = "1,N,60,E", const std::string& units = "M,3,M") {
  return Sum("GPGGA,1.25," + place + ',' + quality + ",7,1.5,2," + units + ",8,9");
}
std::string Told(double latitude, double longitude, double status = 0) {
  return Line("data", {1.25, status, latitude, longitude, 2, 7, 1.5, 3, 5.14444444444444, 90.5, 8, 9});
}

TEST(GPSDevice, SentencesAreToldAsTheyStand) {
  const std::string dated = RMC("1", "010170"), first = Line("time", {1});
  const double m = 1 / 60.0;  // a minute
  // The low 32 bits of a moment in 2069, as far as the system can tell it at all.
  const double late = sizeof(time_t) == 4 ? -1 : -1'139'207'297;
  const std::pair<std::string, std::string> rows[] = {
      {RMC("235959", "311269"), Line("time", {late})},
      {dated + RMC("010203.4567", "020170") + RMC("0", "4294967296"), first + Line("time", {90123.46}) + "no fix\n"},
      {dated + GGA("2", "4143.6058,S,08338.0778,W"), first + Told(-(41 + 43.6058 / 60), -(83 + 38.0778 / 60))},
      {dated + GGA(std::string(1, '\0')) + GGA("\x01"), first + Told(m, 1, 2176) + Told(m, 1, 128)},
      {dated + Sum("GPRMC,1,V,,,,,7,7,020202,,,N") + GGA("1"), first + "no fix\n" + Told(m, 1)},
      {GGA("1", "1,N,1,E", "F,3,M") + GGA("1", "1,N,1,E", "M,3,f") + Sum("GPGGA,1,1,N,1,E,1,7,1.5,2,M"), ""},
      {Sum("GPGSV,1,1,01,1,2,3,4") + Sum("GPGSV,3,2,01,5,6,7,8") + Sum("GPGSV,2,2,01,-9,9,9,9"),
       Line("satellites", {1, 2, 3, 4}) + Line("satellites", {1, 2, 3, 4, 5, 6, 7, 8, -9, 9, 9, 9})},
      {"$GPRMC,1,V*2C\r$GPRMC,1,V*2c\r$GPRMC,1\n,V*2C\r$GPRMC,1,V*3C\r", "no fix\nno fix\nno fix\n"},
      {std::string(70'000, '\xff') + "\r*****\r" + Sum("GNRMC,1,V"), ""}};
  for (const auto& [input, told] : rows) {
    Bench bench;
    // Whatever came, the next good one is taken.
    Feed(bench.device, input + '\r' + Sum("GPRMC,1,V"));
    EXPECT_EQ(bench.log.told, told + "no fix\n") << input;
  }
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
  EXPECT_EQ(restless.told, Line("satellites", {1, 1, 1, 1, 2, 2, 2, 2}) + Line("satellites", {1, 1, 1, 1}) +
                               Line("satellites", {4, 4, 4, 4, 5, 5, 5, 5}) +
                               Line("satellites", {4, 4, 4, 4, 5, 5, 5, 5, 5, 5, 5, 5}));
}

TEST(GPSDevice, APortThatRefusesThrows) {
  FakeDevice port;
  const Bench bench;
  const CapturedOutput errors(STDERR_FILENO);
  port.failing = "cfsetospeed";
  EXPECT_EQ(ErrorText([] { PollFor(5'000); }), "Unable to configure GPS: " + bench.pty.Path());
  EXPECT_THROW(Bench(), std::runtime_error);
}

// What the sentences of a capture say, read once more and in another way.
std::string Said(std::istream& capture) {
  std::string told;
  double midnight = 0, speed = 0, course = 0;
  std::vector<double> satellites;
  for (std::string line; std::getline(capture, line);) {
    std::vector<std::string> f;
    std::istringstream body(line.substr(0, line.find('*')) + ',');
    for (std::string field; std::getline(body, field, ',');) f.push_back(field);
    const auto number = [&](size_t i) { return f[i].empty() ? 0 : std::stod(f[i]); };
    const auto pair = [&](size_t i, size_t at) { return std::stoi(f[i].substr(at, 2)); };
    const auto time = [&] { return midnight + pair(1, 0) * 3600 + pair(1, 2) * 60 + pair(1, 4); };
    const auto place = [&](size_t i, size_t degrees) {
      if (f[i].empty()) return 0.0;
      const double at = std::stod(f[i].substr(0, degrees)) + std::stod(f[i].substr(degrees)) / 60;
      return f[i + 1] == "S" || f[i + 1] == "W" ? -at : at;
    };
    if (f[0] == "$GPRMC" && f[2] == "A") {
      const std::chrono::sys_days day = std::chrono::year(2000 + pair(9, 4)) / pair(9, 2) / pair(9, 0);
      midnight = day.time_since_epoch().count() * 86'400.0;
      speed = number(7) * 0.514444444444444;
      course = number(8);
      told += Line("time", {time()});
    } else if (f[0] == "$GPRMC") {
      told += Line("no fix", {});
    } else if (f[0] == "$GPGGA" && f[10] == "M" && f[12] == "M" && midnight > 0) {
      told += Line("data", {time(), 0, place(2, 2), place(4, 3), number(9), number(7), number(8), number(11), speed,
                            course, number(13), number(14)});
    } else if (f[0] == "$GPGSV") {
      if (f[2] == "1") satellites.clear();
      const size_t before = satellites.size();
      for (size_t i = 4; i < f.size(); ++i) satellites.push_back(number(i));
      if (f.back().empty()) satellites.resize(before + 16);  // an empty end counts as zeros up to four satellites
      if (f[1] == f[2]) told += Line("satellites", satellites);
    }
  }
  return told;
}

TEST(GPSDevice, CapturesComeOutAsTheirSentencesSay) {
  for (const std::string name : {"/garmin15x.nmea", "/garmin-10x.nmea"}) {
    std::ifstream file(MOORLOG_CAPTURES + name, std::ios::binary);
    if (!file) GTEST_SKIP() << "no captures beside the source tree";
    std::stringstream capture;
    capture << file.rdbuf();
    Bench bench;
    Feed(bench.device, capture.str());
    const std::string expected = Said(capture);
    EXPECT_GT(expected.size(), 1'000U);
    // What precedes the first date has no time that every board can tell.
    EXPECT_EQ(bench.log.told.substr(bench.log.told.find("time")), expected.substr(expected.find("time")));
  }
}

TEST(GPSDevice, TheSetUpIsSentInOrder) {
  const char* const garmin =
      "$PGRMO,GPRMC,1;$PGRMO,GPGGA,1;$PGRMO,GPGSA,0;$PGRMO,GPGSV,1;$PGRMO,GPVTG,0;$PGRMO,PGRMT,0;"
      "$PGRMC,,,,,,,,,,8,,2,0;$PGRMCE;";
  const char* const hemisphere =
      "$JASC,GPGGA,0,OTHER;$JASC,GPVTG,0,OTHER;$JASC,GPGSA,0,OTHER;$JASC,GPZDA,0,OTHER;$JASC,GPGGA,0,PORTC;"
      "$JASC,GPGST,0,PORTC;$JBIN,1,0,PORTC;$JBIN,2,0,PORTC;$JASC,GPGGA,10;$JASC,GPRMC,1;"
      "$JSHOW;$JSHOW,ASC;$JSHOW,BIN;$JSHOW,CONF;$JSHOW,GP;$JSHOW,THISPORT;";
  for (const int type : {GPSDevice::TypeGarmin, GPSDevice::TypeHemisphere}) {
    Bench bench(type, true);
    PollFor(100);
    std::string sent = bench.pty.Read();
    for (size_t at; (at = sent.find("\r\n")) != std::string::npos;) sent.replace(at, 2, ";");
    EXPECT_EQ(sent, type == GPSDevice::TypeGarmin ? garmin : hemisphere);
  }
}

}  // namespace
