// The pull through days with a Campbell logger that misbehaves, against a plain model of it: which request goes out
// when, each row that was the newest stored once, each line with its sum.
//
// Input: a byte of how many minutes of each hour the station is awake, so that days don't take long; then the bytes
// that chance is made of. The days are over when they are.

#include <jsoncpp/json/json.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "fuzz/pullbench.h"
#include "json/statefile.h"
#include "runtime/datachecksum.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

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
      if (path.find("ClockSet") != std::string::npos) path = PullBench::SetClock(now);
    const bool first = day == 0;
    if (force || local.tm_mday != day || local.tm_gmtoff / 60 != offset) {
      day = local.tm_mday;
      offset = local.tm_gmtoff / 60;
      zone = zone_now;
      force = false;
      if (!first)
        queue.insert(queue.end(), {PullBench::SetClock(now), PullBench::Set("UTCOffset", std::to_string(offset))});
    }
    if (++count == 12) {
      count = 0;
      for (const char* name : {"Elevation", "Latitude", "Longitude"}) queue.push_back(PullBench::Set(name, "0.000000"));
      queue.push_back(PullBench::kTable);
    }
    if (queue.empty()) queue.push_back(PullBench::kPublic);
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

class Days : PullBench {
 public:
  Days(const uint8_t* data, size_t size) : PullBench(kStart), _at(data), _end(data + size) {
    _pending = [this] { return Collect(), !_model.queue.empty(); };
  }

  void Run() {
    const int awake = (1 + Random(60)) * 12;  // steps
    for (int hour = 1; _at < _end; ++hour) {
      if (Random(3) == 0) ComeBack();
      if (!_pull->IsActive()) Start();
      for (int step = Random(24); step < awake + 12 && _at < _end; ++step) Step();
      if (awake >= 720) continue;
      _pull->SetCSIHostname("");
      PassTo(hour * int64_t{3'600'000});
    }
    Recover();
    REQUIRE(_told == _live);
    std::set<std::string> names;
    for (const auto& [name, document] : _model.files) {
      names.insert(name);
      REQUIRE(ReadStateFile(_rows / name) == document);
    }
    REQUIRE(_rows.Names() == names);
    REQUIRE(ReadStateFile(_conf / "PullCSI.conf").get("last_timestamp", "") == _model.last);
  }

 private:
  static constexpr time_t kStart = 1'711'756'800;  // 2024-03-30: the clocks go forward on the next day

  int Random(int below) {
    const auto next = [this] { return _at < _end ? *_at++ : 0; };
    const int high = below > 256 ? next() * 256 : 0;
    return (high + next()) % below;
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
        return Refuse();
      case 7:
        return _logger.CutNext(static_cast<size_t>(Random(1'000)));
      default:
        _logger.Misbehave(static_cast<CampbellLogger::Trouble>(1 + Random(CampbellLogger::kTroubles - 1)),
                          1 + Random(3));
    }
  }
  void Collect() {
    for (const std::string& path : _logger.Requests()) {
      REQUIRE(!_model.queue.empty() && path == _model.queue.front());
      _model.queue.pop_front();
    }
    for (const CampbellLogger::Row& row : _logger.Rows()) _model.Take(row);
    _live += _logger.LiveRows();
    _logger.Forget();
  }
  void Step() {
    if (_model.queue.size() > 900) ComeBack();  // there is room for a thousand
    if (Random(12) == 0) Disturb();
    Advance();
  }
  void Advance() {
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
      REQUIRE(columns == _columns);
      REQUIRE(CheckSumAgrees(line) && line.size() - line.rfind('\t') == 5);
    }
    _lines.clear();
  }
  // With a logger that does as it should nothing is left in the queue, and there are lines again.
  void Recover() {
    _logger.SetFraming(CampbellLogger::kByLength);
    _logger.Misbehave(CampbellLogger::kNone);
    _logger.CutNext(SIZE_MAX);
    ComeBack();
    if (!_pull->IsActive()) Start();
    for (int step = 0; step < 3; ++step) Advance();
    REQUIRE(_model.queue.empty());
    const int told = _told;
    for (int step = 0; step < 2; ++step) Advance();
    REQUIRE(_told > told);
  }

  const uint8_t* _at;
  const uint8_t* const _end;
  Model _model;
  Zone _zone = kZones[0];
  int _live = 0, _told = 0;
  long _columns = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::cout.rdbuf(nullptr);  // what the link tells of each failure
  if (size > 0) Days(data, size).Run();
  return 0;
}
