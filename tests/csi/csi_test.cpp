#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <optional>
#include <random>
#include <sstream>

#include "csi/pullcsi.h"
#include "emulators/campbelllogger.h"
#include "json/statefile.h"
#include "runtime/datachecksum.h"
#include "tests/support/captured_output.h"
#include "tests/support/poll_runner.h"
#include "tests/support/temp_directory.h"
#include "tests/support/virtual_time.h"

namespace {

using Lines = std::vector<std::string>;

constexpr int kTick = 5'000;  // milliseconds
constexpr const char* kPublic = "/?command=DataQuery&uri=dl:Public&format=json&mode=most-recent&p1=1";
constexpr const char* kTable = "/?command=DataQuery&uri=dl:MoorcloudData&format=json&mode=most-recent&p1=1";

struct Pull : PullCSI {
  Pull(LinuxClock& clock, const std::string& upload, const std::string& conf, int seconds, bool verbose, int port)
      : PullCSI(clock, upload, conf, seconds, verbose, port) {}
};

// A zone by its rules, so that no machine's zone files are needed.
void SetZone(const char* rules) {
  setenv("TZ", rules, 1);
  tzset();
}
constexpr const char* kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";

// Local time, as the logger is told.
[[maybe_unused]] std::string LocalTime(time_t moment) {
  char text[64];
  return {text, strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", localtime(&moment))};
}
[[maybe_unused]] std::string Set(const std::string& name, const std::string& value) {
  return "/?command=setvalueex&uri=dl:public." + name + "&value=" + value + "&format=html";
}
[[maybe_unused]] std::string ClockSet(const std::string& time) {
  return "/?command=ClockSet&format=json&time=" + time + ".000";
}

class CSITest : public testing::Test, public PullCSI::Listener {
 protected:
  explicit CSITest(int table_seconds = 60, int64_t start = VirtualTime::kDefaultWall) : _time(start) {
    _zones.Write("zone", "Europe/Berlin\n");
    _zones.Write("tree/Europe/Berlin", "");
    _zones.Write("tree/UTC", "");
    _clock.emplace(_zones / "tree", _zones / "link", _zones / "zone", _zones / "rtc");
    Restart(table_seconds);
  }
  ~CSITest() noexcept override { unsetenv("TZ"); }
  void Restart(int table_seconds, bool verbose = false) {
    _pull.emplace(*_clock, _rows.Path(), _conf.Path(), table_seconds, verbose, _logger.Port());
    _pull->RegisterListener(this);
  }
  void GotCSIHeader(std::string line) override { _lines.push_back(std::move(line)); }
  void GotCSIData(std::string line) override { _lines.push_back(std::move(line)); }

  // To a moment behind the next tick, when what it has begun has come to its end.
  void Tick() {
    _at += kTick;
    PassTo(_at + 400);
  }
  // The first one.
  void Start() {
    _pull->SetCSIHostname("127.0.0.1");
    _at = _time.Elapsed() + 1'000;
    PassTo(_at + 400);
  }
  // Bytes on their way get the real time that they need.
  void PassTo(int64_t elapsed) {
    const auto adjust = [&] {
      _time.SetGrace(_logger.IsIdle() && _time.Elapsed() < _at ? 0 : 20);
      return _time.Elapsed() >= elapsed || (_time.Elapsed() >= _at && _logger.Connections() > _seen && _logger.IsIdle());
    };
    PollUntil(adjust, static_cast<int>(elapsed - _time.Elapsed()));
    _seen = _logger.Connections();
    _time.SetGrace(0);
  }
  Lines Asked() {
    Lines asked = _logger.Requests();
    _logger.Forget();
    return asked;
  }

  const bool _in_zone = (SetZone(kBerlin), true);
  VirtualTime _time;
  const TempDirectory _zones, _rows, _conf;
  CampbellLogger _logger;
  std::optional<LinuxClock> _clock;
  std::optional<Pull> _pull;
  Lines _lines;
  int64_t _at = 0;  // of the last tick
  int _seen = 0;    // connections
};

TEST_F(CSITest, Smoke) {
  Start();
  for (int i = 0; i < 2000; ++i) Tick();
}

}  // namespace
