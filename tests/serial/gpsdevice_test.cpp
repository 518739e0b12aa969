#include "serial/gpsdevice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iomanip>
#include <optional>
#include <sstream>

#include "emulators/gps_receiver.h"
#include "tests/support/captured_output.h"
#include "tests/support/fake_port.h"
#include "tests/support/poll_runner.h"
#include "tests/support/virtual_time.h"

namespace {

using Lines = std::vector<std::string>;

std::string Sum(const std::string& body) {
  return GPSReceiver::Sentence(body);
}

// What a listener is told, a line each.
template <typename Values>
std::string Line(const std::string& kind, const Values& values) {
  std::ostringstream line;
  line << kind << std::fixed << std::setprecision(6);
  for (const double value : values) line << ' ' << value;
  return line.str();
}
std::string Line(const std::string& kind, std::initializer_list<double> values) {
  return Line(kind, std::vector<double>(values));
}

struct Log : GPSDevice::Listener {
  void GotGPSData(const GPSData& data) override {
    const double time = data.seconds + data.nanoseconds / 1e9;
    lines.push_back(Line(Line("data", {time, double(data.errorFlags)}), data.values));
    EXPECT_EQ(data.reserved16 + data.reserved8[0] + data.reserved8[5], 0);
  }
  void GotGPSTime(const TimeVal& time) override {
    lines.push_back(Line("time", {time.seconds + time.nanoseconds / 1e9}));
  }
  void GotGPSNoFix() override { lines.emplace_back("no fix"); }
  void GotGPSSatellites(const std::vector<GPSDevice::SatStatus>& satellites) override {
    std::vector<double> list;
    for (const auto& s : satellites)
      for (const int value : {s.prn, s.elevation, s.azimuth, s.snr}) list.push_back(value);
    lines.push_back(Line("satellites", list));
  }
  int64_t Count(const std::string& kind) const {
    return std::count_if(lines.begin(), lines.end(), [&](auto& line) { return line.starts_with(kind); });
  }
  Lines lines;
};

// A device whose other end is in the test's hand.
struct Bench {
  explicit Bench(int type = GPSDevice::TypeGarmin, bool verbose = false, bool satellites = true)
      : device(pty.Path(), type, verbose, satellites) {
    time.SetGrace(20);
    device.RegisterListener(&log);
  }
  void Feed(const std::string& bytes) {
    device.ReceivedChars(device.Reader(), bytes.data(), static_cast<int>(bytes.size()));
  }
  // What the device has sent, with ";" as line end.
  std::string Commands() {
    PollFor(100);
    std::string sent = pty.Read();
    for (size_t at; (at = sent.find("\r\n")) != std::string::npos;) sent.replace(at, 2, ";");
    return sent;
  }

  VirtualTime time;
  Pty pty;
  GPSDevice device;
  Log log;
};

TEST(GPSDevice, AReceiverIsFoundAndHeard) {
  const struct {
    GPSReceiver::Make make;
    int before, after;  // its rate
    int found;          // in this second
    int fixes;          // in the ten seconds behind it, at least
    const char* steps;
  } rows[] = {{GPSReceiver::Hemisphere, 57600, 57600, 0, 99, ""},
              {GPSReceiver::Garmin, 38400, 38400, 1, 9, ""},
              {GPSReceiver::Garmin, 4800, 38400, 6, 6, "GPS: trying 4800 baud\n"},
              {GPSReceiver::Garmin, 9600, 38400, 11, 6, "GPS: trying 4800 baud\nGPS: trying 9600 baud\n"},
              {GPSReceiver::Garmin, 19200, 38400, 16, 6,
               "GPS: trying 4800 baud\nGPS: trying 9600 baud\nGPS: trying 19200 baud\n"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.before);
    VirtualTime time;
    time.SetGrace(4);
    GPSReceiver receiver(row.make, row.before);
    std::optional<CapturedOutput> output(std::in_place);
    GPSDevice device(receiver.Path(), row.make, true, true);
    Log log;
    device.RegisterListener(&log);
    PollUntil([&] { return log.Count("data") > 0; }, 30'000);
    const int64_t found = time.Elapsed() / 1'000;
    PollFor(10'000);
    std::istringstream told(output->Text());
    output.reset();
    EXPECT_EQ(found, row.found);
    EXPECT_EQ(receiver.Rate(), row.after);
    EXPECT_EQ(LinuxTTYControl(receiver.Path()).configuration().baudRate, row.after);
    EXPECT_EQ(receiver.Restarts(), row.before == row.after ? 0 : 1);
    EXPECT_GE(log.Count("data"), row.fixes);
    EXPECT_GE(log.Count("time"), 6);
    EXPECT_THAT(log.lines,
                testing::Contains(testing::HasSubstr(" -19.490650 24.173117 100.300000 6.000000 1.500000 ")));
    std::string steps;
    for (std::string line; std::getline(told, line);)
      if (line.ends_with(" baud")) steps += line + '\n';
    EXPECT_EQ(steps, row.steps);
  }
}

TEST(GPSDevice, AFailedSearchStaysAt38400AndStillListens) {
  std::optional<CapturedOutput> output(std::in_place);
  Bench bench(GPSDevice::TypeGarmin, true);
  std::vector<int> rates;
  for (int trial = 0; trial < 7; ++trial, PollFor(5'000)) rates.push_back(bench.pty.Speed());
  bench.Feed("\nnoise\r" + Sum("GPRMC,1,V"));
  const std::string told = output->Text();
  output.reset();
  EXPECT_EQ(rates, (std::vector{38400, 4800, 9600, 19200, 38400, 38400, 38400}));
  EXPECT_EQ(bench.log.lines, Lines{"no fix"});
  EXPECT_EQ(told,
            "GPS: trying 4800 baud\nGPS: trying 9600 baud\nGPS: trying 19200 baud\nGPS: baud search failed\n"
            "GPS: defaulting to 38400 baud\nGPS: noise\nGPS: $GPRMC,1,V*2C\n");
}

// At 4800 bps, unless told otherwise. What doesn't end the search leaves it to go on to 9600; another rate than the
// four starts it anew.
TEST(GPSDevice, WhatLooksLikeASentenceEndsTheSearch) {
  const struct {
    std::string input;
    const char* sent;
    int later;  // the rate, after the receiver's restart and after the trial's end
    int type = GPSDevice::TypeGarmin;
    int rate = 4800;
    bool heard = true;
  } rows[] = {{Sum("GPVTG,1,T"), "$PGRMI,,,,,,,R;", 38400},
              {"$GPVTG,1*00\r\n", "$PGRMI,,,,,,,R;", 38400},
              {"$PGRMCxxxxx\r", "$PGRMI,,,,,,,R;", 38400},
              {Sum("GPVTG,1,T"), "", 38400, GPSDevice::TypeGarmin, 38400},
              {Sum("GPVTG,1,T"), "", 4800, GPSDevice::TypeHemisphere},
              {Sum("GPVTG,1,T"), "", 9600, GPSDevice::TypeGarmin, 4800, false},
              {Sum("GNRMC,1,V"), "", 9600},
              {"$GPVTG,1*000\r\n", "", 9600},
              {"$GPVTG,*00\r\n", "", 9600},
              {"", "", 38400, GPSDevice::TypeGarmin, 115200}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.input);
    Bench bench;
    bench.Commands();
    bench.device.SetType(row.type);
    bench.pty.SetSpeed(row.rate);
    if (!row.heard) bench.device.RegisterListener(nullptr);
    bench.Feed(row.input);
    EXPECT_EQ(bench.Commands(), row.sent);
    PollFor(1'700);
    EXPECT_EQ(bench.pty.Speed(), row.rate);
    PollFor(*row.sent == '\0' ? 3'100 : 300);
    EXPECT_EQ(bench.pty.Speed(), row.later);
  }
}

TEST(GPSDevice, TheSetUpIsSentInOrder) {
  const std::string garmin[] = {"$PGRMO,GPRMC,1;$PGRMO,GPGGA,1;$PGRMO,GPGSA,0;$PGRMO,GPGSV,",
                                ";$PGRMO,GPVTG,0;$PGRMO,PGRMT,0;$PGRMC,,,,,,,,,,8,,2,0;"};
  const std::string hemisphere =
      "$JASC,GPGGA,0,OTHER;$JASC,GPVTG,0,OTHER;$JASC,GPGSA,0,OTHER;$JASC,GPZDA,0,OTHER;$JASC,GPGGA,0,PORTC;"
      "$JASC,GPGST,0,PORTC;$JBIN,1,0,PORTC;$JBIN,2,0,PORTC;$JASC,GPGGA,10;$JASC,GPRMC,1;";
  const struct {
    int type;
    bool verbose, satellites;
    int rate;
    std::string commands;
  } rows[] = {{GPSDevice::TypeGarmin, false, true, 38400, garmin[0] + '1' + garmin[1]},
              {GPSDevice::TypeGarmin, true, false, 38400, garmin[0] + '0' + garmin[1] + "$PGRMCE;"},
              {GPSDevice::TypeHemisphere, false, true, 57600, hemisphere},
              {GPSDevice::TypeHemisphere, true, false, 57600,
               hemisphere + "$JSHOW;$JSHOW,ASC;$JSHOW,BIN;$JSHOW,CONF;$JSHOW,GP;$JSHOW,THISPORT;"},
              {2, true, true, 38400, ""}};
  for (const auto& row : rows) {
    Bench bench(row.type, row.verbose, row.satellites);
    EXPECT_EQ(bench.Commands(), row.commands);
    EXPECT_EQ(bench.pty.Speed(), row.rate);
    EXPECT_EQ(bench.device.IsActive(), row.type == GPSDevice::TypeGarmin);
  }
}

// Seconds since 1970 as a record holds them: the low 32 bits, as far as the system can tell the time at all.
double Cut(int64_t seconds) {
  return seconds == static_cast<time_t>(seconds) ? static_cast<int32_t>(seconds) : -1;
}
// Where no date has come yet.
constexpr std::chrono::sys_days kNoDate = std::chrono::year(-1) / 11 / 30;
int64_t Seconds(std::chrono::sys_days day) {
  return std::chrono::seconds(day.time_since_epoch()).count();
}

std::string RMC(const std::string& time, const std::string& date) {
  return Sum("GPRMC," + time + ",A,1,N,1,E,10,90.5," + date + ",,,A");
}
std::string GGA(const std::string& quality, const std::string& place = "1,N,60,E", const std::string& units = "M,3,M") {
  return Sum("GPGGA,1.25," + place + ',' + quality + ",7,1.5,2," + units + ",8,9");
}
std::string Told(double latitude, double longitude, double status = 0, bool dated = false) {
  const double time = dated ? 1.25 : Cut(Seconds(kNoDate) + 1) + 0.25;
  return Line(Line("data", {time, status}),
              {latitude, longitude, 2, 7, 1.5, 3, dated ? 5.14444444444444 : 0, dated ? 90.5 : 0, 8, 9});
}

TEST(GPSDevice, SentencesAreToldAsTheyStand) {
  const std::string dated = RMC("1", "010170");
  const std::string first = Line("time", {1});
  const double m = 1 / 60.0;  // a minute
  const struct {
    std::string input;
    Lines told;
  } rows[] = {
      {RMC("235959", "311269"), {Line("time", {-1139207297})}},
      {RMC("000000.996", "010170") + RMC("010203.4567", "020170"), {first, Line("time", {90123.46})}},
      {RMC("1e300", "010170") + RMC("-1e300", "4294967295"),
       {Line("time", {Cut(773'095'007)}), Line("time", {Cut(37'310'901'792)})}},
      {Sum("GPRMC,1,A,1,N,1,E,10,90.5,010170,1,W"), {first}},  // older units send no mode
      {Sum("GPRMC,0,A,x,N,1,E,10,90.5,010170,,,A") + RMC("0", "4294967296"), {"no fix", "no fix"}},
      {GGA("1") + GGA("2", "4143.6058,S,08338.0778,W") + GGA("0", "100,W,100,S"),
       {Told(m, 1), Told(-(41 + 43.6058 / 60), -(83 + 38.0778 / 60)), Told(-1, -1)}},
      {GGA(std::string(1, '\0')) + GGA("\x01"), {Told(m, 1, 2176), Told(m, 1, 128)}},
      {dated + Sum("GPRMC,1,V,,,,,7,7,020202,,,N") + GGA("1"), {first, "no fix", Told(m, 1, 0, true)}},
      {GGA("1", "1,N,1,E", "F,3,M") + GGA("1", "1,N,1,E", "M,3,f") + Sum("GPGGA,1,1,N,1,E,1,7,1.5,2,M"), {}},
      {Sum("GPGSV,1,1,03,1,2,3,4,5,6,7,8,9,10,11,12"),
       {"satellites" + Line("", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12})}},
      {Sum("GPGSV,1,1,01,1,2,3,"), {Line("satellites", {1, 2, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0})}},
      {Sum("GPGSV,1,1,01,1,2,3,4") + Sum("GPGSV,3,2,01,5,6,7,8") + Sum("GPGSV,2,2,01,-9,9,9,9"),
       {Line("satellites", {1, 2, 3, 4}), Line("satellites", {1, 2, 3, 4, 5, 6, 7, 8, -9, 9, 9, 9})}},
      {"$GPRMC,1,V*2C\r$GPRMC,1,V*2c\r$GPRMC,1\n,V*2C\r", {"no fix", "no fix", "no fix"}},
      {"$GPRMC,1,V*2D\r$GPRMC,1,V*3C\r$GPRMC,1,V*2\r$GPRMC,1,V*\r" + std::string(70'000, '\xff') + "\r*****\r", {}},
      {Sum("GNRMC,1,V") + Sum("PGRMC,1,V") + Sum("GPGSA,1,V"), {}},
  };
  for (const auto& row : rows) {
    Bench bench;
    bench.Feed(row.input);
    EXPECT_EQ(bench.log.lines, row.told) << row.input;
    bench.log.lines.clear();
    // Whatever came, the next good one is taken; a byte at a time, too.
    for (const char c : "\r" + Sum("GPRMC,1,V")) bench.Feed({c});
    EXPECT_EQ(bench.log.lines, Lines{"no fix"});
  }
}

TEST(GPSDevice, AListenerMayThrowOrFeedAndNothingIsLeft) {
  struct Restless : GPSDevice::Listener {
    void GotGPSNoFix() override {
      if (calls++ == 0) bench.Feed(Sum("GPRMC,2,V") + "rest");
      if (calls == 3) throw std::runtime_error("enough");
    }
    Bench bench;
    int calls = 0;
  } restless;
  restless.bench.device.RegisterListener(&restless);
  restless.bench.Feed(Sum("GPRMC,1,V"));
  EXPECT_EQ(restless.calls, 2);
  restless.bench.Feed("\r");
  EXPECT_THROW(restless.bench.Feed(Sum("GPRMC,3,V")), std::runtime_error);
  restless.bench.Feed(Sum("GPRMC,4,V"));
  EXPECT_EQ(restless.calls, 4);
}

TEST(GPSDevice, APortThatRefusesThrows) {
  EXPECT_THROW(GPSDevice("/nowhere/tty", 1, false, false), LinuxTTYBase::DeviceError);
  FakePort port;
  const Bench bench;
  const CapturedOutput errors(STDERR_FILENO);
  port.failing = "cfsetospeed";
  const auto refused = testing::ThrowsMessage<std::runtime_error>("Unable to configure GPS: " + bench.pty.Path());
  EXPECT_THAT([&] { GPSDevice(bench.pty.Path(), 0, false, false); }, refused);
  EXPECT_THAT([] { PollFor(5'000); }, refused);
}

// The sentences of a capture, read once more and in another way.
Lines Read(std::istream& capture) {
  Lines told;
  std::chrono::sys_days day = kNoDate;
  double speed = 0, course = 0;
  std::vector<double> satellites;
  for (std::string line; std::getline(capture, line);) {
    Lines f;
    std::istringstream body(line.substr(0, line.find('*')) + ',');
    for (std::string field; std::getline(body, field, ',');) f.push_back(field);
    const auto number = [&](size_t i) { return f[i].empty() ? 0 : std::stod(f[i]); };
    const auto pair = [&](size_t i, size_t at) { return std::stoi(f[i].substr(at, 2)); };
    const auto time = [&] { return Cut(Seconds(day) + pair(1, 0) * 3'600LL + pair(1, 2) * 60LL + pair(1, 4)); };
    const auto place = [&](size_t i, char negative) {
      if (f[i].empty()) return 0.0;
      const size_t minutes = f[i].find('.') - 2;
      const double degrees = std::stod(f[i].substr(0, minutes)) + std::stod(f[i].substr(minutes)) / 60;
      return f[i + 1][0] == negative ? -degrees : degrees;
    };
    if (f[0] == "$GPRMC" && f[2] != "A") {
      told.emplace_back("no fix");
    } else if (f[0] == "$GPRMC") {
      day = std::chrono::year(2000 + pair(9, 4)) / pair(9, 2) / pair(9, 0);
      speed = number(7) * 0.514444444444444;
      course = number(8);
      told.push_back(Line("time", {time()}));
    } else if (f[0] == "$GPGGA" && f[10] == "M" && f[12] == "M") {
      told.push_back(Line(Line("data", {time(), 0}), {place(2, 'S'), place(4, 'W'), number(9), number(7), number(8),
                                                      number(11), speed, course, number(13), number(14)}));
    } else if (f[0] == "$GPGSV") {
      if (f[2] == "1") satellites.clear();
      const size_t before = satellites.size();
      for (size_t i = 4; i < f.size(); ++i) satellites.push_back(number(i));
      if (f.back().empty()) satellites.resize(before + 16);  // an empty end counts as zeros up to four satellites
      if (f[1] == f[2]) told.push_back(Line("satellites", satellites));
    }
  }
  return told;
}

TEST(GPSDevice, CapturesComeOutAsTheirSentencesSay) {
  for (const std::string name : {"garmin15x.nmea", "garmin-10x.nmea"}) {
    std::ifstream file(MOORLOG_CAPTURES "/" + name, std::ios::binary);
    if (!file) GTEST_SKIP() << "no captures beside the source tree";
    std::stringstream bytes;
    bytes << file.rdbuf();
    Bench bench;
    for (size_t at = 0; at < bytes.view().size(); at += 1'000) {
      bench.pty.Write(bytes.str().substr(at, 1'000));
      PollFor(1);
    }
    const Lines expected = Read(bytes);
    PollUntil([&] { return bench.log.lines.size() >= expected.size(); });
    EXPECT_GT(expected.size(), 10U);
    EXPECT_EQ(bench.log.lines, expected);
  }
}

}  // namespace
