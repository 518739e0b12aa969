#include <gtest/gtest.h>
#include <jsoncpp/json/reader.h>

#include <deque>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>

#include "csi/pullcsi.h"
#include "emulators/campbelllogger.h"
#include "emulators/poll_runner.h"
#include "emulators/temp_directory.h"
#include "emulators/virtual_time.h"
#include "json/statefile.h"
#include "runtime/datachecksum.h"
#include "tests/support/captured_output.h"
#include "tests/support/setting.h"

// Disks take their time: what is synced is noted, in order, and left to the system.
std::vector<std::string> synced;
extern "C" int __wrap_fsync(int fd) {
  synced.push_back(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)).filename());
  return 0;
}

namespace {

using Lines = std::vector<std::string>;

constexpr int kTick = 5'000;  // milliseconds
const std::string kRow = "&format=json&mode=most-recent&p1=1";
const std::string kPublic = "/?command=DataQuery&uri=dl:Public" + kRow;
const std::string kTable = "/?command=DataQuery&uri=dl:MoorcloudData" + kRow;

std::string Set(const std::string& name, const std::string& value) {
  return "/?command=setvalueex&uri=dl:public." + name + "&value=" + value + "&format=html";
}
std::string SetClock(time_t moment) {
  char text[64];
  return "/?command=ClockSet&format=json&time=" +
         std::string(text, strftime(text, sizeof text, "%FT%T.000", localtime(&moment)));
}

// By their rules, so that no machine's zone files are needed.
struct Zone {
  const char *name, *rules;
};
constexpr Zone kZones[] = {{"Europe/Berlin", "CET-1CEST,M3.5.0,M10.5.0/3"},
                           {"Europe/London", "GMT0BST,M3.5.0/1,M10.5.0"}};

struct Pull : PullCSI {
  Pull(LinuxClock& clock, const std::string& rows, const std::string& conf, int seconds, bool verbose, int port)
      : PullCSI(clock, rows, conf, seconds, verbose, port) {}
};

class CSITest : public testing::Test, public PullCSI::Listener {
 protected:
  explicit CSITest(int64_t start = VirtualTime::kDefaultWall) : _time(start) {
    synced.clear();
    for (const Zone& zone : kZones) _zones.Write(std::string("tree/") + zone.name, "");
    _clock.emplace(_zones / "tree", _zones / "link", _zones / "zone", _zones / "rtc");
    _logger.SetClockError(0);
    Renew(60);
  }
  ~CSITest() noexcept override { unsetenv("TZ"); }

  void Enter(const Zone& zone) {
    setenv("TZ", zone.rules, 1);
    tzset();
    _zones.Write("zone", zone.name);
  }
  void Renew(int table_seconds, bool verbose = false) {
    _pull.emplace(*_clock, _rows.Path(), _conf.Path(), table_seconds, verbose, _logger.Port());
    _pull->RegisterListener(this);
  }
  void GotCSIHeader(std::string line) override { _lines.push_back(std::move(line)); }
  void GotCSIData(std::string line) override {
    _lines.push_back(std::move(line));
    if (_on_data) _on_data();
  }

  // Up to the first tick, and from each tick to the next.
  void Start() {
    PassTo(_time.Elapsed() / 1'000 * 1'000 + 1'000);
    _pull->SetCSIHostname("127.0.0.1");
    _tick = _time.Elapsed() + 1'000;
    PassTo(_tick - 1);
  }
  // While something is pending the link comes back 2 s after each failure.
  void Tick() {
    _seen = _logger.Connections();
    PassTo(_tick + 1);
    Exchange();
    for (int retry = 0; _pending() && !_logger.IsSilent() && retry < 2; ++retry) {
      PassTo(_time.Elapsed() + 2'000);
      Exchange();
    }
    _tick += kTick;
    PassTo(_tick - 1);
  }
  // What is on its way gets the real time that it needs.
  void Exchange() {
    _time.SetGrace(_refused ? 0 : 2'000);
    PollUntil([this] { return _logger.Connections() > _seen && (_logger.IsIdle() || _logger.IsSilent()); }, 100);
    _time.SetGrace(0);
    _seen = _logger.Connections();
  }
  void Ticks(int count) {
    while (count-- > 0) Tick();
  }
  // From a whole millisecond on: the rest of one takes many passes.
  void PassTo(int64_t elapsed) {
    _time.AdvanceNanoseconds(999'999 - (_time.monotonic + 999'999) % 1'000'000);
    PollFor(static_cast<int>(elapsed - _time.Elapsed()));
  }
  Lines Asked() {
    Lines asked = _logger.Requests();
    _logger.Forget();
    return asked;
  }

  const TempDirectory _zones, _rows, _conf;
  const bool _in_zone = (Enter(kZones[0]), true);
  VirtualTime _time;
  CampbellLogger _logger;
  std::optional<LinuxClock> _clock;
  std::optional<Pull> _pull;
  Lines _lines;
  std::function<void()> _on_data;
  std::function<bool()> _pending = [] { return false; };
  int64_t _tick = 0;  // the next one, in milliseconds since the beginning
  int _seen = 0;      // connections
  bool _refused = false;
};

TEST_F(CSITest, AsksForWhatIsDue) {
  _pull->SetElevation(-12.5);
  _pull->SetLatitude(1e20);
  _pull->SetLongitude(-0.0000004);
  _pull->SetCSITable("Other");
  Start();
  EXPECT_EQ(Asked(), Lines());
  Tick();
  EXPECT_EQ(_logger.Received(), "GET " + kPublic + " HTTP/1.1\r\nHost: 127.0.0.1\r\nUser-Agent: Heathlink\r\n\r\n");
  EXPECT_EQ(_logger.Connections(), 1);
  Ticks(10);
  EXPECT_EQ(Asked(), Lines(11, kPublic));
  Tick();
  const Lines group = {Set("Elevation", "-12.500000"), Set("Latitude", "100000000000000000000.000000"),
                       Set("Longitude", "-0.000000")};
  EXPECT_EQ(Lines(_logger.Requests().begin(), _logger.Requests().end() - 1), group);
  EXPECT_TRUE(Asked().back().starts_with("/?command=DataQuery&uri=dl:Other&"));
  EXPECT_EQ(_logger.Connections(), 12) << "one connection for all four";

  _pull->SetCSIHostname("");
  EXPECT_FALSE(_pull->IsActive());
  PassTo(_tick + 60'000);
  EXPECT_EQ(Asked(), Lines());
  // Below two ticks each one is for the table.
  for (const int seconds : {9, 4, -5}) {
    Renew(seconds);
    Start();
    Ticks(2);
    EXPECT_EQ(Asked().back(), kTable) << seconds;
  }
}

TEST_F(CSITest, WhatIsQueuedWaits) {
  Renew(5);
  _pull->SetCSITable("Public");
  Start();
  _logger.Misbehave(CampbellLogger::kSilence, 2);
  Ticks(2);
  const Lines group = {Set("Elevation", "0.000000"), Set("Latitude", "0.000000"), Set("Longitude", "0.000000"),
                       kPublic};
  EXPECT_EQ(Asked(), Lines(group.begin(), group.begin() + 2)) << "one on each connection";
  _on_data = [this] { _pull->SetCSIHostname(""); };
  Tick();
  EXPECT_EQ(Asked(), Lines(group.begin() + 2, group.end()));
  _on_data = [] { throw std::runtime_error("not now"); };
  const CapturedOutput output;
  Start();
  _pending = [this] { return _logger.Requests().size() < 12; };
  Ticks(2);
  Lines expected;
  for (int i = 0; i < 4; ++i) expected.insert(expected.end(), group.begin(), group.end());
  EXPECT_EQ(Asked(), expected) << "the link comes back by itself, 2 s after each throw";
  EXPECT_EQ(output.Text().find("Head::Private::HandleRead(): Got exception not now\n"), 0);
}

TEST_F(CSITest, HasRoomForAThousand) {
  Renew(5);
  Start();
  _logger.Refuse();
  _refused = true;
  const CapturedOutput output;  // the link tells of each refusal
  Ticks(240);
  Enter(kZones[1]);  // the clock is due behind 4 * 240: it keeps its place, and gets the time of the last tick
  Ticks(9);
  Enter(kZones[0]);  // due again, for the last two places
  Ticks(1);
  Enter(kZones[1]);  // and without room
  Ticks(20);
  _logger.Listen();
  _refused = false;
  Tick();
  const std::string now = SetClock(time(nullptr) - 4);
  Lines asked = Asked();
  ASSERT_EQ(asked.size(), 1'000U);
  EXPECT_EQ(Lines({asked[960], asked[961], asked[998], asked[999]}),
            (Lines{now, Set("UTCOffset", "0"), now, Set("UTCOffset", "60")}));
  Tick();
  EXPECT_EQ(Asked(), (Lines{SetClock(time(nullptr) - 4), Set("UTCOffset", "0"), Set("Elevation", "0.000000"),
                            Set("Latitude", "0.000000"), Set("Longitude", "0.000000"), kTable}));
}

TEST_F(CSITest, TellsWhatItSeesAndWhatItCannotKeep) {
  Renew(5, true);
  std::filesystem::remove(_conf.Path());
  Start();
  _logger.SetFields({{"a", "xsd:string", "\"\\u00e4\""}});
  const CapturedOutput output;
  Tick();
  const std::string time = _logger.Rows().at(0).time;
  const std::string document = _rows.Read("ws-2024-03-01T010000.0.json");
  EXPECT_NE(document.find("\"timezone\":\"Europe/Berlin\""), std::string::npos);
  const std::string text = output.Text();
  const size_t header = text.rfind("Content-Length: ");
  EXPECT_EQ(text.substr(text.find('\n', header)),
            "\nServer: logger\ncontent-type: application/json\n\ntable=MoorcloudData timestamp=" + time +
                " json=" + document + "\n");
  EXPECT_EQ(ReadStateFile(_conf / "PullCSI.conf")["last_timestamp"], time);
  EXPECT_EQ(synced.at(0), "ws-2024-03-01T010000.0.json") << "the row is on the disk first";
  EXPECT_EQ(synced.at(2), "PullCSI.conf.new");

  // Without directories neither is written, and the row doesn't come again when there are some.
  std::filesystem::remove_all(_conf.Path());
  std::ofstream(_conf.Path()) << "a file";
  std::filesystem::remove_all(_rows.Path());
  _logger.SetClockError(3'600);
  Tick();
  EXPECT_TRUE(output.Text().ends_with("}\n\nPullCSI: Unable to write conf file\n"));
  std::filesystem::create_directory(_rows.Path());
  Tick();
  EXPECT_EQ(_rows.Names().size(), 0U);
}

TEST_F(CSITest, LetsNoReplyFillTheMemory) {
  Start();
  _logger.SetFields({{"long", "xsd:string", '"' + std::string(5 << 20, 'x') + '"'}});
  const CapturedOutput output;
  Tick();
  EXPECT_TRUE(output.Text().starts_with("Head::Private::HandleRead(): Got exception PullCSI: reply is too long\n"));
  _logger.SetFields({{"long", "xsd:string", '"' + std::string(4'000'000, 'x') + '"'}});
  Ticks(2);
  EXPECT_EQ(_lines.size(), 3U);
}

// From the emulator's side: what is to be asked next, and what is to be stored.
struct Model {
  std::deque<std::string> queue;
  int count = 0, day = 0;
  long offset = 0;
  bool force = false;
  std::string zone, last;
  std::map<std::string, Json::Value> files;

  void Tick(const std::string& zone_now, time_t now) {
    const tm local = *localtime(&now);
    for (std::string& path : queue)
      if (path.find("ClockSet") != std::string::npos) path = SetClock(now);
    const bool first = day == 0;
    if (force || local.tm_mday != day || local.tm_gmtoff / 60 != offset) {
      day = local.tm_mday;
      offset = local.tm_gmtoff / 60;
      zone = zone_now;
      force = false;
      if (!first) queue.insert(queue.end(), {SetClock(now), Set("UTCOffset", std::to_string(offset))});
    }
    if (++count == 12) {
      count = 0;
      for (const char* name : {"Elevation", "Latitude", "Longitude"}) queue.push_back(Set(name, "0.000000"));
      queue.push_back(kTable);
    }
    if (queue.empty()) queue.push_back(kPublic);
  }
  static bool IsValid(const std::string& text) {
    tm when{};
    if (strptime(text.c_str(), "%FT%T", &when) == nullptr) return false;
    when.tm_isdst = -1;
    const double ahead = difftime(mktime(&when), time(nullptr));
    return ahead > -31'557'600 && ahead < 86'400;
  }
  void Take(const CampbellLogger::Row& row) {
    if (!IsValid(row.time)) {
      force = true;
    } else if (!IsValid(last) || row.time > last) {
      last = row.time;
      const std::string when = row.time.substr(0, 13) + row.time.substr(14, 2) + row.time.substr(17);
      Json::Value& file = files["ws-" + when + ".json"];
      std::istringstream(row.body) >> file;
      file["head"]["environment"]["timezone"] = zone;
    }
  }
};

// A week that the clocks go forward in, with a trouble every minute. The station sleeps for most of each hour, so that
// it doesn't take long: MOORLOG_CSI_AWAKE, in minutes, asks for more of it; MOORLOG_CSI_DAYS and MOORLOG_CSI_SEED for
// others.
class CSIWeek : public CSITest {
 protected:
  static constexpr time_t kStart = 1'711'584'000;  // 2024-03-28
  CSIWeek() : CSITest(kStart) {
    _pending = [this] { return Collect(), !_model.queue.empty(); };
  }
  int Random(int below) { return static_cast<int>(_random() % static_cast<unsigned int>(below)); }

  void ComeBack() {
    _logger.Listen();
    _refused = false;
  }
  void Disturb() {
    if (_refused && Random(4) == 0) return ComeBack();
    constexpr int kErrors[] = {0, 600, -7'200, 90'000, -3 * 86'400, -400 * 86'400};
    switch (Random(20)) {
      case 0:
        return _logger.SetClockError(kErrors[Random(6)]);
      case 1:
        return _logger.SetFractions(Random(2) == 0);
      case 2:
        return _logger.SetFraming(static_cast<CampbellLogger::Framing>(Random(3)));
      case 3:
        return _logger.SetFields({{"n" + std::to_string(Random(3)), "xsd:float", ""}, {"b", "xsd:boolean", "true"}});
      case 4:
        _zone = kZones[Random(2)];
        return Enter(_zone);
      case 5: {
        Renew(60);
        Start();
        Model fresh;
        fresh.last = _model.last;
        fresh.files = _model.files;
        _model = fresh;
        return;
      }
      case 6:
        _logger.Refuse();
        _refused = true;
        return;
      case 7:
        return _logger.CutNext(static_cast<size_t>(Random(1'000)));
      default:
        _logger.Misbehave(static_cast<CampbellLogger::Trouble>(1 + Random(CampbellLogger::kTroubles - 1)),
                          1 + Random(3));
    }
  }
  void Collect() {
    for (const std::string& path : _logger.Requests()) {
      ASSERT_EQ(path, _model.queue.empty() ? "nothing" : _model.queue.front());
      _model.queue.pop_front();
    }
    for (const CampbellLogger::Row& row : _logger.Rows()) _model.Take(row);
    _live += _logger.LiveRows();
    _logger.Forget();
  }
  void Step() {
    if (Random(12) == 0) Disturb();
    _model.Tick(_zone.name, kStart + _tick / 1'000);
    Tick();
    Collect();
    for (const std::string& line : _lines) {
      const auto columns = std::count(line.begin(), line.end(), '\t');
      if (line.starts_with("DATALOGGERH\t")) {
        _columns = columns;
        continue;
      }
      ++_told;
      EXPECT_EQ(columns, _columns) << line;
      EXPECT_TRUE(CheckSumAgrees(line) && line.size() - line.rfind('\t') == 5) << line;
    }
    _lines.clear();
  }

  std::mt19937 _random{static_cast<uint32_t>(Setting("MOORLOG_CSI_SEED", 7))};
  Model _model;
  Zone _zone = kZones[0];
  int _live = 0, _told = 0;
  long _columns = 0;
};

TEST_F(CSIWeek, EachRowThatWasTheNewestIsStoredOnceAndTheClockIsSetInTime) {
  const int awake = Setting("MOORLOG_CSI_AWAKE", 2) * 12;  // steps
  std::optional<CapturedOutput> output(std::in_place);
  for (int hour = 1; hour <= 24 * Setting("MOORLOG_CSI_DAYS", 7) && !HasFailure(); ++hour) {
    if (Random(3) == 0) ComeBack();
    if (!_pull->IsActive()) Start();
    for (int step = Random(24); step < awake + 12 && !HasFailure(); ++step) Step();
    if (awake >= 720) continue;
    _pull->SetCSIHostname("");
    PassTo(hour * int64_t{3'600'000});
  }
  output.reset();
  EXPECT_EQ(_told, _live);
  std::set<std::string> names;
  for (const auto& [name, document] : _model.files) {
    names.insert(name);
    EXPECT_EQ(ReadStateFile(_rows / name), document) << name;
  }
  EXPECT_EQ(_rows.Names(), names);
  EXPECT_EQ(ReadStateFile(_conf / "PullCSI.conf")["last_timestamp"], _model.last);
  std::cerr << "rows stored " << names.size() << ", lines " << _told << '\n';
  EXPECT_GT(names.size(), 50U);
}

}  // namespace
