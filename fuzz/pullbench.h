// A pull on an emulated Campbell logger, taken from tick to tick in virtual time, with what it tells its listener.

#pragma once

#include <cstdlib>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "csi/pullcsi.h"
#include "emulators/campbelllogger.h"
#include "emulators/poll_runner.h"
#include "emulators/temp_directory.h"
#include "emulators/virtual_time.h"

class PullBench : public PullCSI::Listener {
 public:
  using Lines = std::vector<std::string>;

  // By their rules, so that no machine's zone files are needed.
  struct Zone {
    const char *name, *rules;
  };
  static constexpr Zone kZones[] = {{"Europe/Berlin", "CET-1CEST,M3.5.0,M10.5.0/3"},
                                    {"Europe/London", "GMT0BST,M3.5.0/1,M10.5.0"}};

  static constexpr int kTick = 5'000;  // milliseconds
  static inline const std::string kRow = "&format=json&mode=most-recent&p1=1";
  static inline const std::string kPublic = "/?command=DataQuery&uri=dl:Public" + kRow;
  static inline const std::string kTable = "/?command=DataQuery&uri=dl:MoorcloudData" + kRow;

  static std::string Set(const std::string& name, const std::string& value) {
    return "/?command=setvalueex&uri=dl:public." + name + "&value=" + value + "&format=html";
  }
  static std::string SetClock(time_t moment) {
    char text[64];
    return "/?command=ClockSet&format=json&time=" +
           std::string(text, strftime(text, sizeof text, "%FT%T.000", localtime(&moment)));
  }

 protected:
  explicit PullBench(int64_t start = VirtualTime::kDefaultWall) : _time(start) {
    for (const Zone& zone : kZones) _zones.Write(std::string("tree/") + zone.name, "");
    _clock.emplace(_zones / "tree", _zones / "link", _zones / "zone", _zones / "rtc");
    _logger.SetClockError(0);
    Renew(60);
  }
  ~PullBench() noexcept override { unsetenv("TZ"); }

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
  void Ticks(int count) {
    while (count-- > 0) Tick();
  }
  // What is on its way gets the real time that it needs.
  void Exchange() {
    _time.SetGrace(_refused ? 0 : 2'000);
    PollUntil([this] { return _logger.Connections() > _seen && (_logger.IsIdle() || _logger.IsSilent()); }, 100);
    _time.SetGrace(0);
    _seen = _logger.Connections();
  }
  // From a whole millisecond on: the rest of one takes many passes.
  void PassTo(int64_t elapsed) {
    _time.AdvanceNanoseconds(999'999 - (_time.monotonic + 999'999) % 1'000'000);
    PollFor(static_cast<int>(elapsed - _time.Elapsed()));
  }
  void Refuse() {
    _logger.Refuse();
    _refused = true;
  }
  void ComeBack() {
    _logger.Listen();
    _refused = false;
  }
  Lines Asked() {
    Lines asked = _logger.Requests();
    _logger.Forget();
    return asked;
  }

  struct Pull : PullCSI {
    Pull(LinuxClock& clock, const std::string& rows, const std::string& conf, int seconds, bool verbose, int port)
        : PullCSI(clock, rows, conf, seconds, verbose, port) {}
  };

  const TempDirectory _zones{TempDirectory::Memory()}, _rows{TempDirectory::Memory()}, _conf{TempDirectory::Memory()};
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
