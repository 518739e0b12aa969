// The manager through days with a soil instrument that misbehaves every few hours: each observation is reported once,
// but for those that may go, and the instrument is set once a day, line by line. docs/soil.md tells what may go, and
// why.
//
// Input: two bytes for each trouble, which one it is and how long it takes until the next. Every fiftieth value of the
// first damages the observation file as well.

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/soilbench.h"
#include "net/net_util.h"

namespace {

using Lines = SoilBench::Lines;

void Require(bool condition, const std::string& otherwise) {
  if (condition) return;
  std::cerr << otherwise << '\n';
  abort();
}

// What goes out once a day up to the files, on the day of `moment` at "hhmmss".
Lines Sequence(time_t moment = time(nullptr)) {
  char date[16];
  strftime(date, sizeof date, "%Y%m%d", localtime(&moment));
  return {"<CFG><IPOUTRATE>1</IPOUTRATE></CFG>",
          "<CFG><CLOCK><DATE>" + std::string(date) + "</DATE></CLOCK></CFG>",
          "<CFG><CLOCK><TIME>hhmmss</TIME></CLOCK></CFG>",
          "<MEASUREMENT><TYPE>CHAMBER</TYPE></MEASUREMENT>",
          "<MEASUREMENT><SPLIT>WEEK</SPLIT></MEASUREMENT>",
          "<MEASUREMENT><LOCATION>INT</LOCATION></MEASUREMENT>",
          "<MEASUREMENT><FILE>APPEND</FILE></MEASUREMENT>",
          "<MEASUREMENT><NAME>" + Hostname() + "</NAME></MEASUREMENT>",
          "<CFG><MEASRESTART>TRUE</MEASRESTART></CFG>",
          "<CFG><CONTINUE>TRUE</CONTINUE></CFG>"};
}

Lines WithoutClock(Lines lines) {
  for (std::string& line : lines)
    if (line.starts_with("<CFG><CLOCK><TIME>")) line.replace(18, 6, "hhmmss");
  return lines;
}

class Days : SoilBench {
 public:
  Days(const uint8_t* data, size_t size) : SoilBench("127.0.15.2"), _at(data), _end(data + size) {}
  ~Days() noexcept override = default;

  void Run() {
    _watched.RegisterListener(this);
    _time.Schedule(1, [this] { _watched.Connect(_instrument.Host()); });
    _time.Schedule(3 * kHour, [this] { MakeTrouble(); });
    while (_at < _end) Step();
    // Eight hours with nothing but what is under way; in the last ones reports come as they should.
    constexpr int kQuiet = 240, kWell = 120;  // steps
    size_t well = 0;
    for (int step = 0; step < kQuiet; ++step) {
      Step();
      if (step == kQuiet - kWell) well = _finished.size();
    }
    Check(well);
  }

 private:
  using Name = std::pair<std::string, int>;
  struct Fate {
    int received = 0;
    bool early = false;    // asked for before the instrument had finished it
    int asked = -1;        // the step when it was last asked for after that
    bool cut_off = false;  // and the connection ended soon after
  };
  struct Watched : Manager {
    using Manager::Manager;
    void GotSoilClosed() override {
      Manager::GotSoilClosed();
      closed = PollTimer::Now();
    }
    int64_t closed = 0;  // nanoseconds
  };

  void GotSoilReport(long timestamp, std::string report) override {
    for (const auto& finished : _instrument.Finished())
      if (report == SoilInstrument::Report(finished)) {
        Require(timestamp == finished.ended, report);
        ++_fates[NameOf(finished)].received;
        return;
      }
    // Cut short, and joined to the first line of this connection.
    Require(ClosedLately(), report);
  }
  bool ClosedLately() const { return PollTimer::Now() - _watched.closed < 30 * kMinute * 1'000'000; }
  static Name NameOf(const SoilInstrument::Observation& of) { return {of.file, of.number}; }

  int Next() { return _at < _end ? *_at++ : 0; }
  void MakeTrouble() {
    if (_at == _end) return;
    const int which = Next();
    if (which % 50 == 0) {
      ++_damages;
      _dir.Write("Soil.conf", "{\"damaged");
    }
    _instrument.Misbehave(which % SoilInstrument::kMisbehaviours);
    _time.Schedule(2 * kHour + int64_t{Next()} * 42'000, [this] { MakeTrouble(); });
  }

  // Two minutes. All that is sent is printed.
  void Step() {
    const Lines yesterday = Sequence();
    Lines sent;
    std::stringstream printed;
    std::streambuf* const output = std::cout.rdbuf(printed.rdbuf());
    PollFor(2 * kMinute - 1);
    Settle([] { return false; }, 1);
    std::cout.rdbuf(output);
    for (std::string line; std::getline(printed, line);)
      if (line.starts_with("Soil Tx: ")) sent.push_back(Short(line.substr(9)));
    const auto& finished = _instrument.Finished();
    while (_finished.size() < finished.size()) _finished.insert(NameOf(finished[_finished.size()]));
    ++_step;
    for (const std::string& line : sent) {
      const size_t file = line.find("<INFILE>"), number = line.find("</INFILE><OB>");
      if (file == line.npos) continue;
      const Name name(line.substr(file + 8, number - file - 8), atoi(line.c_str() + number + 13));
      if (Fate& fate = _fates[name]; _finished.count(name) > 0)
        fate.asked = _step;
      else
        fate.early = true;
    }
    if (ClosedLately())
      for (auto& [name, fate] : _fates) fate.cut_off = fate.cut_off || _step - fate.asked < 15;
    for (auto at = sent.begin(); at != sent.end(); ++at)
      if (*at == yesterday[0]) CheckSequence({at, sent.end()}, yesterday);
    if (const time_t now = time(nullptr); localtime(&now)->tm_hour > 1) _days.insert(Sequence()[1]);
  }
  void CheckSequence(Lines sent, const Lines& yesterday) {
    const Lines head = WithoutClock({sent.begin(), sent.begin() + 10});
    Require(head == yesterday || head == Sequence(), head[1]);
    _sequences.insert(head[1]);
    auto at = sent.begin() + 10;
    const std::string copied = at->starts_with("<CMD><COPY>") ? at++->substr(11) : std::string();
    for (std::string last; at->starts_with("<CMD><MEAS><DELETE>"); last = at++->substr(19))
      Require(at->substr(19) > last && copied > at->substr(19), *at);
    Require(*at == kStart && at[1] == kState, *at);
  }

  // Of what has finished behind the first `well` nothing is lost.
  void Check(size_t well) {
    if (!_days.empty()) _days.erase(_days.begin());
    for (const std::string& day : _days) Require(_sequences.count(day) == 1, "no sequence on " + day);
    const auto& finished = _instrument.Finished();
    Require(finished.size() > well + 2, "the instrument stands still");
    for (size_t i = 0; i < finished.size(); ++i) {
      const std::string text = finished[i].file + ' ' + std::to_string(finished[i].number);
      const Fate& fate = _fates[NameOf(finished[i])];
      const auto times = static_cast<int>(_finished.count(NameOf(finished[i])));
      Require(fate.received <= times + _damages, text + " came again and again");
      if (fate.received > 0) continue;
      Require(fate.asked < 0 || fate.cut_off, text + " was lost");
      const auto next = _fates.find({finished[i].file, finished[i].number + 1});
      Require(fate.asked >= 0 || fate.early || next == _fates.end(), text + " was passed over");
      Require(i < well || i + 1 == finished.size() || fate.early, text + " wasn't asked for");
    }
  }

  const uint8_t* _at;
  const uint8_t* const _end;
  Watched _watched{_dir.Path(), true};
  int _step = 0, _damages = 0;
  std::multiset<Name> _finished;  // a file that was deleted may begin anew, where the clock goes back over a Sunday
  std::map<Name, Fate> _fates;
  std::set<std::string> _days, _sequences;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Days(data, size).Run();
  return 0;
}
