#include "serial/gpsdevice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iomanip>
#include <random>
#include <sstream>

#include "emulators/gps_receiver.h"
#include "tests/support/captured_output.h"
#include "tests/support/fake_port.h"
#include "tests/support/poll_runner.h"
#include "tests/support/virtual_time.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

// What the listener was told, a line each.
std::string Fix(double seconds, const std::vector<double>& values, unsigned status = 0) {
  std::ostringstream line;
  line << "data " << std::fixed << std::setprecision(6) << seconds;
  for (const double value : values) line << ' ' << value;
  line << ' ' << status;
  return line.str();
}

std::string Satellites(const std::vector<std::vector<int>>& satellites) {
  std::string line = "satellites";
  for (const auto& s : satellites)
    for (const int field : s) line += (&field == &s.front() ? " " : "/") + std::to_string(field);
  return line;
}

struct Log : GPSDevice::Listener {
  void GotGPSData(const GPSData& data) override {
    EXPECT_EQ(data.reserved16, 0);
    EXPECT_THAT(data.reserved8, testing::Each(0));
    lines.push_back(
        Fix(data.seconds + data.nanoseconds / 1e9, {data.values.begin(), data.values.end()}, data.errorFlags));
  }
  void GotGPSTime(const TimeVal& time) override {
    std::ostringstream line;
    line << "time " << time;
    lines.push_back(line.str());
  }
  void GotGPSNoFix() override { lines.push_back("no fix"); }
  void GotGPSSatellites(const std::vector<GPSDevice::SatStatus>& satellites) override {
    std::vector<std::vector<int>> list(satellites.size());
    std::transform(satellites.begin(), satellites.end(), list.begin(), [](const auto& s) {
      return std::vector{s.prn, s.elevation, s.azimuth, s.snr};
    });
    lines.push_back(Satellites(list));
  }
  int Count(const std::string& kind) const {
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](auto& l) { return l.starts_with(kind); }));
  }
  std::vector<std::string> lines;
};

struct Bench {
  explicit Bench(int type = GPSDevice::TypeGarmin, bool verbose = false) : device(pty.Path(), type, verbose, true) {
    device.RegisterListener(&log);
  }
  void Feed(const std::string& bytes) {
    device.ReceivedChars(device.Reader(), bytes.data(), static_cast<int>(bytes.size()));
  }
  int Rate() const { return pty.Speed(); }

  VirtualTime time;
  Pty pty;
  GPSDevice device;
  Log log;
};

std::string Sum(const std::string& body) {
  return GPSReceiver::Sentence(body);
}

// ---- The search, from the field's point of view ----

struct SearchRow {
  const char* name;
  int rate;           // of the receiver, before
  int found;          // in this second of the search
  const char* steps;  // told on the way
};

class GPSSearch : public testing::TestWithParam<SearchRow> {};

TEST_P(GPSSearch, EndsAtTheCommonRate) {
  const auto& row = GetParam();
  VirtualTime time;
  time.SetGrace(4);
  GPSReceiver receiver(GPSReceiver::Garmin, row.rate);
  GPSDevice device(receiver.Path(), GPSDevice::TypeGarmin, true, true);
  Log log;
  device.RegisterListener(&log);
  std::string told;
  {
    const CapturedOutput output;
    PollUntil([&] { return log.Count("data") > 0; }, 30'000);
    EXPECT_EQ(time.Elapsed() / 1'000, row.found);
    PollFor(10'000);
    told = output.Text();
  }
  EXPECT_EQ(receiver.Rate(), 38400);
  EXPECT_EQ(LinuxTTYControl(receiver.Path()).configuration().baudRate, 38400);
  EXPECT_EQ(receiver.Restarts(), row.rate == 38400 ? 0 : 1);
  EXPECT_GE(log.Count("data"), 6);
  EXPECT_GE(log.Count("time"), 6);
  EXPECT_THAT(log.lines, testing::Contains(testing::HasSubstr(" -19.490650 24.173117 100.300000 6.000000 1.500000 ")));
  std::string steps;
  std::istringstream lines(told);
  for (std::string line; std::getline(lines, line);)
    if (line.ends_with(" baud")) steps += line + ';';
  EXPECT_EQ(steps, row.steps);
}

INSTANTIATE_TEST_SUITE_P(
    Rates, GPSSearch,
    testing::Values(SearchRow{"At38400", 38400, 1, ""}, SearchRow{"At4800", 4800, 6, "GPS: trying 4800 baud;"},
                    SearchRow{"At9600", 9600, 11, "GPS: trying 4800 baud;GPS: trying 9600 baud;"},
                    SearchRow{"At19200", 19200, 16,
                              "GPS: trying 4800 baud;GPS: trying 9600 baud;GPS: trying 19200 baud;"}),
    [](const auto& row) { return row.param.name; });

TEST(GPSDevice, AFailedSearchStaysAt38400AndStillListens) {
  std::string told;
  std::vector<int> rates;
  std::vector<std::string> lines;
  {
    const CapturedOutput output;
    Bench bench(GPSDevice::TypeGarmin, true);
    for (int trial = 0; trial < 7; ++trial) {
      rates.push_back(bench.Rate());
      PollFor(5'000);
    }
    bench.Feed("\nnoise\r" + Sum("GPRMC,1,V"));
    lines = bench.log.lines;
    told = output.Text();
  }
  EXPECT_THAT(rates, ElementsAre(38400, 4800, 9600, 19200, 38400, 38400, 38400));
  EXPECT_THAT(lines, ElementsAre("no fix"));
  EXPECT_EQ(told,
            "GPS: trying 4800 baud\nGPS: trying 9600 baud\nGPS: trying 19200 baud\nGPS: baud search failed\n"
            "GPS: defaulting to 38400 baud\nGPS: noise\nGPS: $GPRMC,1,V*2C\n");
}

struct DetectionRow {
  const char* name;
  int type;
  int rate;
  std::string input;
  bool ends;
  bool restarts;
};

class GPSDetection : public testing::TestWithParam<DetectionRow> {};

TEST_P(GPSDetection, EndsTheSearchOrNot) {
  const auto& row = GetParam();
  Bench bench;
  bench.time.SetGrace(20);
  PollFor(100);
  bench.pty.Read();
  bench.device.SetType(row.type);
  bench.pty.SetSpeed(row.rate);
  bench.Feed(row.input);
  PollFor(100);
  EXPECT_EQ(bench.pty.Read(), row.restarts ? "$PGRMI,,,,,,,R\r\n" : "");
  EXPECT_EQ(bench.device.IsActive(), !row.ends || row.restarts);
  if (row.restarts) {
    PollFor(1'700);
    EXPECT_EQ(bench.Rate(), row.rate);
    PollFor(300);
    EXPECT_EQ(bench.Rate(), 38400);
    EXPECT_FALSE(bench.device.IsActive());
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, GPSDetection,
                         testing::Values(DetectionRow{"GoodSum", 1, 4800, Sum("GPVTG,1,T"), true, true},
                                         DetectionRow{"BadSum", 1, 4800, "$GPVTG,1*00\r\n", true, true},
                                         DetectionRow{"Proprietary", 1, 4800, "$PGRMCxxxxx\r", true, true},
                                         DetectionRow{"AtHome", 1, 38400, Sum("GPVTG,1,T"), true, false},
                                         DetectionRow{"OtherMake", 0, 4800, Sum("GPVTG,1,T"), true, false},
                                         DetectionRow{"OtherTalker", 1, 4800, Sum("GNRMC,1,V"), false, false},
                                         DetectionRow{"StarMisplaced", 1, 4800, "$GPVTG,1*000\r\n", false, false},
                                         DetectionRow{"TenBytes", 1, 4800, "$GPVTG,*00\r\n", false, false}),
                         [](const auto& row) { return row.param.name; });

TEST(GPSDevice, WithoutListenerNoSearchEnds) {
  Bench bench;
  bench.device.RegisterListener(nullptr);
  bench.Feed(Sum("GPRMC,1,V"));
  PollFor(5'000);
  EXPECT_EQ(bench.Rate(), 4800);
}

// ---- Set-up ----

struct SetUpRow {
  const char* name;
  int type;
  bool verbose, satellites;
  int rate;
  std::string commands;
};

class GPSSetUp : public testing::TestWithParam<SetUpRow> {};

TEST_P(GPSSetUp, SendsItsCommandsInOrder) {
  const auto& row = GetParam();
  VirtualTime time;
  time.SetGrace(20);
  Pty pty;
  const GPSDevice device(pty.Path(), row.type, row.verbose, row.satellites);
  PollFor(100);
  std::string sent = pty.Read();
  for (size_t at; (at = sent.find("\r\n")) != std::string::npos;) sent.replace(at, 2, ";");
  EXPECT_EQ(sent, row.commands);
  EXPECT_EQ(pty.Speed(), row.rate);
  EXPECT_EQ(device.IsActive(), row.type == GPSDevice::TypeGarmin);
}

const std::string kGarmin =
    "$PGRMO,GPRMC,1;$PGRMO,GPGGA,1;$PGRMO,GPGSA,0;$PGRMO,GPGSV,1;$PGRMO,GPVTG,0;$PGRMO,PGRMT,0;"
    "$PGRMC,,,,,,,,,,8,,2,0;";
const std::string kHemisphere =
    "$JASC,GPGGA,0,OTHER;$JASC,GPVTG,0,OTHER;$JASC,GPGSA,0,OTHER;$JASC,GPZDA,0,OTHER;$JASC,GPGGA,0,PORTC;"
    "$JASC,GPGST,0,PORTC;$JBIN,1,0,PORTC;$JBIN,2,0,PORTC;$JASC,GPGGA,10;$JASC,GPRMC,1;";

INSTANTIATE_TEST_SUITE_P(
    Rows, GPSSetUp,
    testing::Values(SetUpRow{"Garmin", 1, false, true, 38400, kGarmin},
                    SetUpRow{"GarminVerbose", 1, true, false, 38400,
                             std::string(kGarmin).replace(58, 1, "0") + "$PGRMCE;"},
                    SetUpRow{"Hemisphere", 0, false, true, 57600, kHemisphere},
                    SetUpRow{"HemisphereVerbose", 0, true, false, 57600,
                             kHemisphere + "$JSHOW;$JSHOW,ASC;$JSHOW,BIN;$JSHOW,CONF;$JSHOW,GP;$JSHOW,THISPORT;"},
                    SetUpRow{"Neither", 2, true, true, 38400, ""}),
    [](const auto& row) { return row.param.name; });

TEST(GPSDevice, AHemisphereUnitGivesTenFixesASecond) {
  VirtualTime time;
  time.SetGrace(5);
  GPSReceiver receiver(GPSReceiver::Hemisphere, 57600);
  GPSDevice device(receiver.Path(), GPSDevice::TypeHemisphere, false, false);
  Log log;
  device.RegisterListener(&log);
  PollFor(3'050);
  EXPECT_EQ(log.Count("data"), 30);
  EXPECT_EQ(log.Count("time"), 3);
  EXPECT_THAT(log.lines, testing::Contains("time 1709251202.000000000"));
}

// ---- Sentences ----

struct SentenceRow {
  const char* name;
  std::string input;
  std::vector<std::string> told;
};

class GPSSentence : public testing::TestWithParam<SentenceRow> {};

TEST_P(GPSSentence, IsToldAs) {
  Bench bench;
  bench.Feed(GetParam().input);
  EXPECT_THAT(bench.log.lines, ElementsAreArray(GetParam().told));
  bench.log.lines.clear();
  // Whatever came, the next good one is taken; a byte at a time, too.
  for (const char c : "\r" + Sum("GPRMC,1,V")) bench.Feed({c});
  EXPECT_THAT(bench.log.lines, ElementsAre("no fix"));
}

std::string RMC(const std::string& time, const std::string& date, const std::string& end = ",,,A") {
  return Sum("GPRMC," + time + ",A,1,N,1,E,10,90.5," + date + end);
}
std::string GGA(const std::string& quality, const std::string& place = "1,N,1,E", const std::string& units = "M,3,M") {
  return Sum("GPGGA,1.25," + place + ',' + quality + ",7,1.5,2," + units + ",8,9");
}
// Seconds since 1970 as a record holds them: the low 32 bits, as far as the system can tell the time at all.
int32_t Cut(int64_t seconds) {
  return seconds == static_cast<time_t>(seconds) ? static_cast<int32_t>(seconds) : -1;
}
std::string Told(int64_t seconds) {
  return "time " + std::to_string(Cut(seconds)) + ".000000000";
}
// Where no date has come yet.
constexpr std::chrono::sys_days kNoDate = std::chrono::year(-1) / 11 / 30;
std::string Told(double latitude, double longitude, unsigned status) {
  return Fix(Cut(kNoDate.time_since_epoch().count() * int64_t{86'400} + 1) + 0.25,
             {latitude, longitude, 2, 7, 1.5, 3, 0, 0, 8, 9}, status);
}
const double kMinute = 1 / 60.0;

INSTANTIATE_TEST_SUITE_P(
    Rows, GPSSentence,
    testing::Values(
        SentenceRow{"Year69", RMC("235959", "311269"), {"time -1139207297.000000000"}},
        SentenceRow{"Year70", RMC("000001", "010170"), {"time 1.000000000"}},
        SentenceRow{"Hundredths", RMC("000000.996", "010170"), {"time 1.000000000"}},
        SentenceRow{"HundredthsRounded", RMC("010203.4567", "020170"), {"time 90123.460000000"}},
        SentenceRow{"TimeBeyondAll",
                    RMC("1e300", "010170", ",,,A") + RMC("-1e300", "4294967295"),
                    {Told(773'095'007), Told(37'310'901'792)}},
        SentenceRow{"NoMode", Sum("GPRMC,0,A,1,N,1,E,10,90.5,010170,1,W"), {"time 0.000000000"}},
        SentenceRow{"Void", Sum("GPRMC,0,V,1,N,1,E,10,90.5,010170,,,N"), {"no fix"}},
        SentenceRow{"Unreadable", Sum("GPRMC,0,A,x,N,1,E,10,90.5,010170,,,A"), {"no fix"}},
        SentenceRow{"DateTooLarge", RMC("0", "4294967296"), {"no fix"}},
        SentenceRow{"NorthEast", GGA("1"), {Told(kMinute, kMinute, 0)}},
        SentenceRow{
            "SouthWest", GGA("2", "4143.6058,S,08338.0778,W"), {Told(-(41 + 43.6058 / 60), -(83 + 38.0778 / 60), 0)}},
        SentenceRow{"SidesSwapped", GGA("0", "100,W,100,S"), {Told(-1, -1, 0)}},
        SentenceRow{"QualityBytes",
                    GGA(std::string(1, '\0')) + GGA("\x01"),
                    {Told(kMinute, kMinute, 2176), Told(kMinute, kMinute, 128)}},
        SentenceRow{"SpeedAndCourse",
                    RMC("1", "010170") + GGA("1"),
                    {"time 1.000000000", Fix(1.25, {kMinute, kMinute, 2, 7, 1.5, 3, 5.14444444444444, 90.5, 8, 9})}},
        SentenceRow{
            "VoidKeepsTheDate",
            RMC("1", "010170") + Sum("GPRMC,1,V,,,,,7,7,020202,,,N") + GGA("1"),
            {"time 1.000000000", "no fix", Fix(1.25, {kMinute, kMinute, 2, 7, 1.5, 3, 5.14444444444444, 90.5, 8, 9})}},
        SentenceRow{"Feet", GGA("1", "1,N,1,E", "F,3,M") + GGA("1", "1,N,1,E", "M,3,f"), {}},
        SentenceRow{"FieldsMissing", Sum("GPGGA,1,1,N,1,E,1,7,1.5,2,M"), {}},
        SentenceRow{"ThreeSatellites",
                    Sum("GPGSV,1,1,03,1,2,3,4,5,6,7,8,9,10,11,12"),
                    {Satellites({{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}})}},
        SentenceRow{"LastOneEmpty",
                    Sum("GPGSV,1,1,01,1,2,3,"),
                    {Satellites({{1, 2, 3, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}})}},
        SentenceRow{"SecondAppends",
                    Sum("GPGSV,1,1,01,1,2,3,4") + Sum("GPGSV,3,2,01,5,6,7,8") + Sum("GPGSV,2,2,01,-9,9,9,9"),
                    {Satellites({{1, 2, 3, 4}}), Satellites({{1, 2, 3, 4}, {5, 6, 7, 8}, {-9, 9, 9, 9}})}},
        SentenceRow{"SumInEitherCase", "$GPRMC,1,V*2C\r$GPRMC,1,V*2c\r$GPRMC,1,B*38\r", {"no fix", "no fix", "no fix"}},
        SentenceRow{"WrongSum", "$GPRMC,1,V*2D\r$GPRMC,1,V*3C\r$GPRMC,1,V*2\r$GPRMC,1,V*\r", {}},
        SentenceRow{"OtherTalkers", Sum("GNRMC,1,V") + Sum("PGRMC,1,V") + Sum("GPGSA,1,V"), {}},
        SentenceRow{"HalfAndNoise",
                    "$GPRMC,1\n,V*2C\r\n$GPRMC,1,V*\r" + std::string(70'000, '\xff') + "\r*****\r",
                    {"no fix"}}),
    [](const auto& row) { return row.param.name; });

TEST(GPSDevice, AListenerMayThrowOrFeedAndNothingIsLeft) {
  Bench bench;
  struct Restless : GPSDevice::Listener {
    void GotGPSNoFix() override {
      if (calls++ == 0) bench->Feed(Sum("GPRMC,2,V") + "rest");
      if (calls == 3) throw std::runtime_error("enough");
    }
    Bench* bench;
    int calls = 0;
  } restless;
  restless.bench = &bench;
  bench.device.RegisterListener(&restless);
  bench.Feed(Sum("GPRMC,1,V"));
  EXPECT_EQ(restless.calls, 2);
  bench.Feed("\r");
  EXPECT_THROW(bench.Feed(Sum("GPRMC,3,V")), std::runtime_error);
  bench.Feed(Sum("GPRMC,4,V"));
  EXPECT_EQ(restless.calls, 4);
}

TEST(GPSDevice, ASearchThatIsAtAnotherRateStartsAnew) {
  Bench bench;
  bench.pty.SetSpeed(115200);
  PollFor(5'000);
  EXPECT_EQ(bench.Rate(), 38400);
  PollFor(5'000);
  EXPECT_EQ(bench.Rate(), 4800);
}

TEST(GPSDevice, APortThatRefusesThrows) {
  EXPECT_THROW(GPSDevice("/nowhere/tty", 1, false, false), LinuxTTYBase::DeviceError);
  FakePort port;
  const CapturedOutput errors(STDERR_FILENO);
  const auto error_of = [](auto step) {
    try {
      step();
    } catch (const std::runtime_error& error) {
      return std::string(error.what());
    }
    return std::string();
  };
  Bench bench;
  port.failing = "cfsetospeed";
  EXPECT_EQ(error_of([&] { GPSDevice(bench.pty.Path(), 0, false, false); }),
            "Unable to configure GPS: " + bench.pty.Path());
  EXPECT_EQ(error_of([] { PollFor(5'000); }), "Unable to configure GPS: " + bench.pty.Path());
}

// ---- Fields ----

template <typename Value>
Value Reference(std::istream& in, Value value) {
  if (in.fail()) return value;
  const int next = in.peek();
  if (next == ',') {
    in.get();
  } else if (next != '*') {
    in >> value;
    in.get();
  }
  return value;
}

// Beside the library's own stream, over texts made of what matters to numbers.
TEST(FieldStream, ReadsAsAFormattedStreamDoes) {
  std::mt19937 random(1);
  const std::string alphabet = "0011223456789999999,,,.. +-eE*x\t";
  for (int round = 0; round < 30'000; ++round) {
    std::string text;
    for (auto length = random() % 30; length > 0; --length) text += alphabet[random() % alphabet.size()];
    if (round % 3 == 0) text.insert(0, round % 2 == 0 ? "9e30" : "429496729");
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    FieldStream fields(text);
    for (int field = 0; field < 6; ++field) {
      switch (random() % 4) {
        case 0:
          ASSERT_EQ(GPSReadDouble(fields), Reference(in, 0.0)) << text;
          break;
        case 1:
          ASSERT_EQ(GPSReadChar(fields), Reference(in, ' ')) << text;
          break;
        case 2:
          ASSERT_EQ(GPSReadUnsigned(fields), Reference(in, 0U)) << text;
          break;
        default:
          ASSERT_EQ(GPSReadInteger(fields), Reference(in, 0)) << text;
      }
      ASSERT_EQ(fields.fail(), in.fail()) << text;
    }
  }
}

// ---- Captures of real receivers, read here once more and in another way ----

struct Reading {
  std::vector<std::string> told;
  std::chrono::sys_days day = kNoDate;
  double speed = 0, course = 0;
  std::vector<std::vector<int>> satellites;

  int64_t Seconds(const std::string& packed) const {
    const auto part = [&](int at) { return std::stoll(packed.substr(at, 2)); };
    return Cut(day.time_since_epoch().count() * int64_t{86'400} + part(0) * 3'600 + part(2) * 60 + part(4));
  }

  static double Place(const std::string& packed, const std::string& side) {
    if (packed.empty()) return 0;
    const size_t minutes = packed.find('.') - 2;
    const double degrees = std::stod(packed.substr(0, minutes)) + std::stod(packed.substr(minutes)) / 60;
    return side == "S" || side == "W" ? -degrees : degrees;
  }

  void Sentence(const std::string& line) {
    std::vector<std::string> f;
    std::istringstream body(line.substr(0, line.find('*')) + ',');
    for (std::string field; std::getline(body, field, ',');) f.push_back(field);
    const auto number = [&](size_t i) { return f[i].empty() ? 0 : std::stod(f[i]); };
    if (f[0] == "$GPRMC") {
      if (f[2] != "A") return told.push_back("no fix");
      const auto part = [&](int at) { return std::stoi(f[9].substr(at, 2)); };
      day = std::chrono::year(2000 + part(4)) / part(2) / part(0);
      speed = number(7) * 0.514444444444444;
      course = number(8);
      told.push_back(Told(Seconds(f[1])));
    } else if (f[0] == "$GPGGA" && f[10] == "M" && f[12] == "M") {
      told.push_back(
          Fix(static_cast<double>(Seconds(f[1])), {Place(f[2], f[3]), Place(f[4], f[5]), number(9), number(7),
                                                   number(8), number(11), speed, course, number(13), number(14)}));
    } else if (f[0] == "$GPGSV") {
      if (f[2] == "1") satellites.clear();
      for (size_t i = 4; i + 3 < f.size(); i += 4)
        satellites.push_back({static_cast<int>(number(i)), static_cast<int>(number(i + 1)),
                              static_cast<int>(number(i + 2)), static_cast<int>(number(i + 3))});
      // A sentence that ends in an empty field fills up with zeros.
      if (f.back().empty())
        for (size_t i = f.size(); i < 20; i += 4) satellites.push_back({0, 0, 0, 0});
      if (f[1] == f[2]) told.push_back(Satellites(satellites));
    }
  }
};

class GPSCapture : public testing::TestWithParam<const char*> {};

TEST_P(GPSCapture, ComesOutAsItsSentencesSay) {
  std::ifstream file(MOORLOG_CAPTURES "/" + std::string(GetParam()), std::ios::binary);
  if (!file) GTEST_SKIP() << "no captures beside the source tree";
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  Reading reading;
  std::istringstream lines(bytes);
  for (std::string line; std::getline(lines, line);) reading.Sentence(line);

  Bench bench;
  bench.time.SetGrace(20);
  for (size_t at = 0; at < bytes.size(); at += 1'000) {
    bench.pty.Write(bytes.substr(at, 1'000));
    PollFor(1);
  }
  EXPECT_TRUE(PollUntil([&] { return bench.log.lines.size() >= reading.told.size(); }));
  EXPECT_GT(reading.told.size(), 10U);
  EXPECT_THAT(bench.log.lines, ElementsAreArray(reading.told));
}

INSTANTIATE_TEST_SUITE_P(Files, GPSCapture, testing::Values("garmin15x.nmea", "garmin-10x.nmea"),
                         [](const auto& row) { return std::string(row.param).substr(0, 6) + row.param[7]; });

}  // namespace
