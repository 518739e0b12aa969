// A whole station for hours of troubles, killed and started again on the way: what its files hold afterwards.

#include <gtest/gtest.h>
#include <jsoncpp/json/json.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>

#include "daqm/daqm.h"
#include "runtime/filesystem.h"
#include "runtime/runprogram.h"
#include "station/station.h"
#include "tests/station/settable_time.h"
#include "tests/station/site_settings.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/own_host.h"
#include "tests/support/poll_runner.h"
#include "tests/support/virtual_time.h"

namespace {

namespace fs = std::filesystem;

// script/soak asks for a month.
unsigned Setting(const char* name, unsigned usual) {
  const char* const text = std::getenv(name);
  return text == nullptr ? usual : static_cast<unsigned>(std::atoi(text));
}

constexpr int kSecond = 1'000, kMinute = 60 * kSecond;  // milliseconds
constexpr int kUnwritten = 130;                         // lines of the analyser, in 8 KiB and a second
constexpr int kTroubles = 16;

// What a life of the station leaves for the one who looks at its files; in memory that outlives it.
struct Ledger {
  static constexpr int kMost = 1'000;
  // Lines of the analyser, by number, that needn't be in a file.
  void Excuse(int from, int to) {
    if (excuses < kMost) excused[excuses++] = {from, to};
  }
  bool IsExcused(int number) const {
    return std::any_of(excused, excused + excuses,
                       [&](const auto& range) { return number >= range.from && number <= range.to; });
  }
  struct Range {
    int from, to;
  } excused[kMost];
  int excuses = 0;
  int sent = 0;  // lines of the analyser
  int troubles = 0;
  int deck[kTroubles] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};  // of them, as they come
  int64_t end = VirtualTime::kDefaultWall;
};

// One life: emulators, station and their time. The disk is a mount of `drawer`, so that it can be taken away and put
// back.
class Life {
 public:
  Life(const TempDirectory& dir, Ledger& ledger, unsigned seed)
      : _dir(dir), _disk(dir / "disk"), _ledger(ledger), _random(seed), _time(ledger.end + 600) {
    ledger.excuses = 0;
    _time.Hurry();
    settable_time = &_time;
    DAQM::port_to_dev.at(1).device = _site.modules.Path();
    _station.emplace(SettingsFor(_site, dir), ZonesIn(dir));
    _station->Answer(_site.Document());
    _site.analyser.SetRate(1);
  }

  // To its end, or to a kill.
  void Run(int hours, bool killed) {
    _Pass(10 * kMinute);
    const auto descriptors = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
    const auto held = descriptors();
    for (int at = 10; at < hours * 60; at += 10) {
      _Trouble(_NextTrouble());
      _Pass(10 * kMinute);
      Json::Value status;
      std::istringstream(_station->Answer("status")) >> status;
      EXPECT_EQ(status["instruments"].size(), 7U);
    }
    _Pass(2 * kMinute);
    EXPECT_LE(descriptors(), held + 1) << "of the hours";
    _ledger.sent = _site.analyser.LinesSent();
    _ledger.end = time(nullptr);
    if (killed) {
      _ledger.Excuse(_ledger.sent - kUnwritten, _ledger.sent);
      raise(SIGKILL);
    }
    _station.reset();
  }

 private:
  void _Pass(int milliseconds) { PollFor(milliseconds); }
  int _Number() const { return _site.analyser.LinesSent(); }

  // Lasts for less than ten minutes. Lines of the analyser that are sent meanwhile may be lost, and so may `before`.
  void _Lose(int before, int seconds, const std::function<void()>& end, int after = 3) {
    const int from = _Number() - before;
    _Pass(seconds * kSecond);
    end();
    _Pass(after * kSecond);
    _ledger.Excuse(from, _Number() + 1);
  }

  void _Tell(const std::string& command) {
    _station->Answer("<tarno><moorlog><cmd><" + command + ">true</" + command + "></cmd></moorlog></tarno>");
  }

  // Each one of the day once, in any order, before any comes again.
  int _NextTrouble() {
    const int turn = _ledger.troubles++ % kTroubles;
    if (turn == 0) std::shuffle(std::begin(_ledger.deck), std::end(_ledger.deck), _random);
    return _ledger.deck[turn];
  }
  void _Trouble(int which) {
    const int any = static_cast<int>(_random() % 97);
    switch (which) {
      case 0:
        _site.analyser.Refuse();
        _site.analyser.HangUp();
        return _Lose(2, any, [&] { _site.analyser.Listen(); });
      case 1:
        _site.analyser.Stall(true);
        return _Lose(0, any, [&] { _site.analyser.Stall(false); });
      case 2:
        _site.analyser.CutLine();
        return _Lose(1, 1, [] {});
      case 3:
        return _site.analyser.SendGarbage(5'000);
      case 4:
        _site.analyser.Reset();
        return _Lose(2, 1, [] {});
      case 5:
        for (int kind = 0; kind < 3; ++kind)
          _site.modules.Misbehave(static_cast<int>(_random() % DAQMBus::kMisbehaviours), any % 5);
        return;
      case 6:
        return _site.campbell.Misbehave(static_cast<CampbellLogger::Trouble>(any % CampbellLogger::kTroubles), 3);
      case 7:
        _site.campbell.Refuse();
        _Pass(any * kSecond);
        return _site.campbell.Listen();
      case 8:
        return _site.soil.Misbehave(any % SoilInstrument::kMisbehaviours);
      case 9:
        _site.sonic.Set({.rate = 1, .bad_sums = true});
        _Pass(any * kSecond);
        return _site.sonic.Set({.rate = 1});
      case 10:
        _site.gps.SetFix(false);
        _Tell("startdaqmlivemeasure");
        _Pass(any * kSecond);
        _Tell("stopdaqmlivemeasure");
        return _site.gps.SetFix(true);
      case 11:
        _site.button.Press();
        _site.button.Release();
        return _Lose(1, any, [&] { _site.button.Press(), _site.button.Release(); });
      case 12: {  // full
        const std::string filler = _dir / "drawer/else/filler";
        {
          std::ofstream file(filler, std::ios::binary);
          EXPECT_TRUE(file.is_open());
          for (const std::string block(1 << 16, ' '); file << block << std::flush;) continue;
        }  // an open one would keep its room
        return _Lose(
            kUnwritten, any + 150, [&] { unlink(filler.c_str()); }, 70);
      }
      case 13:  // away, and back in another state
        if (umount2(_disk.c_str(), MNT_DETACH) != 0) ADD_FAILURE() << errno;
        return _Lose(2, any, [&] {
          Mount(_dir);
          if (any % 2 == 0) return;
          mount(nullptr, _disk.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr);
          _Pass(any * kSecond);
          mount(nullptr, _disk.c_str(), nullptr, MS_BIND | MS_REMOUNT, nullptr);
        });
      default: {  // the clock, an hour either way; the receiver sets it right
        _time.StepWall((any % 2 == 0 ? 1 : -1) * 3'600'000'000'000);
        return;
      }
    }
  }

 public:
  static void Mount(const TempDirectory& dir) {
    if (mount((dir / "drawer").c_str(), (dir / "disk").c_str(), nullptr, MS_BIND, nullptr) != 0)
      throw std::runtime_error("mount");
  }

 private:
  const TempDirectory& _dir;
  const std::string _disk;
  Ledger& _ledger;
  std::mt19937 _random;
  VirtualTime _time;
  Site _site{{.sonic_rate = 1, .soil = "127.5.1.8"}};
  std::optional<Station> _station;
};

// Looks at all files of a life, and takes them away but for those that a kill has left open.
class Inspector {
 public:
  Inspector(const TempDirectory& dir, const Ledger& ledger) : _drawer(dir / "drawer") {
    std::string findings;
    RunProgramCaptureStdout(MOORLOG_VERIFY " " + _drawer, findings);
    std::istringstream lines(findings);
    for (std::string line; std::getline(lines, line);) {
      // Modules and Campbell logger have clocks of their own, which are set.
      const bool own_clock = line.find("bog-campbell-") != line.npos || line.find("s.txt:") != line.npos ||
                             line.find("-backup.txt:") != line.npos || line.find("-live.txt:") != line.npos;
      if (line.find(" findings, ") == line.npos && !(own_clock && line.find("the time goes back") != line.npos))
        ADD_FAILURE() << line;
    }
    for (const auto& entry : fs::directory_iterator(_drawer))
      if (entry.path().filename().string().starts_with("bog-analyser-")) _Take(entry.path());
    std::error_code ignored;
    for (int number = 0, missing = 0; number < ledger.sent && missing < 5; ++number)
      if (_found.count(number) == 0 && !ledger.IsExcused(number)) {
        ADD_FAILURE() << "line " << number << " of " << ledger.sent << " is in no file";
        ++missing;
      }
    for (const auto& entry : fs::directory_iterator(_drawer))
      if (entry.is_regular_file() && entry.path().extension() != ".part") fs::remove(entry.path(), ignored);
  }
  size_t Found() const { return _found.size(); }

 private:
  // An archive whose text is there as well, as its disk went at that moment, isn't looked at.
  void _Take(const fs::path& path) {
    std::string text;
    if (path.extension() == ".zip") {
      if (fs::exists(fs::path(path).replace_extension(".txt"))) return;
      RunProgramCaptureStdout("/usr/bin/unzip -p " + path.string(), text);
    } else {
      std::ifstream file(path, std::ios::binary);
      text.assign(std::istreambuf_iterator<char>(file), {});
    }
    std::istringstream lines(text);
    int last = -1;
    for (std::string line; std::getline(lines, line);) {
      int seconds = 0, nanoseconds = 0, number = 0;
      if (std::sscanf(line.c_str(), "DATA %d %d %*s %*s %*s %*s %*s %*s %*s %d", &seconds, &nanoseconds, &number) != 3)
        continue;
      if (line + '\n' != Analyser::DataLine(seconds, nanoseconds, number)) ADD_FAILURE() << line;
      if (number <= last) ADD_FAILURE() << path << ": " << number << " behind " << last;
      if (!_found.insert(number).second) ADD_FAILURE() << path << ": " << number << " once more";
      last = number;
    }
  }

  const std::string _drawer;
  std::set<int> _found;
};

void ExpectWholeStateFiles(const TempDirectory& dir) {
  DocMoorlog document;
  DocumentFile(dir / "state/moorlog.xml").Load(document);
  EXPECT_EQ(document.moorlog.cfg.soil.get(), "127.5.1.8");
  for (const char* name : {"state/Soil.conf", "state/PullCSI.conf"}) {
    Json::Value value;
    EXPECT_TRUE(!fs::exists(dir / name) || Json::Reader().parse(dir.Read(name), value)) << dir.Read(name);
  }
}

TEST(StationDay, LosesNothingThatCouldBeWritten) {
  if (geteuid() != 0 || !MountNamespaceAvailable()) GTEST_SKIP() << "needs root, and / to be a mount point";
  const TempDirectory dir;
  const unsigned seed = Setting("MOORLOG_STATION_SEED", 1), hours = Setting("MOORLOG_STATION_HOURS", 3);
  auto& ledger = *new (mmap(nullptr, sizeof(Ledger), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Ledger;
  const ChildResult result = RunInMountNamespace([&] {
    ASSERT_TRUE(EnterOwnNetwork());
    AdoptOrphans();  // the zip programs
    for (const char* name : {"rtc", "disk/x/y", "drawer/x"}) dir.Write(name, "");
    MountEmpty("/sys/class");
    fs::create_directories("/sys/class/gpio/gpio13");
    for (const char* name : {"active_low", "direction", "value"})
      std::ofstream("/sys/class/gpio/gpio13/" + std::string(name)).flush();
    MountEmpty(dir / "drawer", "size=64m");
    fs::create_directory(dir / "drawer/else");
    Life::Mount(dir);
    std::mt19937 random(seed);
    unsigned passed = 0;
    for (int life = 0; passed < hours; ++life) {
      const unsigned length = std::min(hours - passed, 1 + static_cast<unsigned>(random() % 12));
      const bool killed = random() % 2 == 0;
      passed += length;
      const unsigned fate = random();
      const ChildResult end = RunInChild([&] { Life(dir, ledger, fate).Run(static_cast<int>(length), killed); });
      EXPECT_TRUE(killed ? end.signal == SIGKILL : end.exit_status == 0) << end.signal << end.output;
      for (int status = 0; wait(&status) > 0;) continue;
      const Inspector inspector(dir, ledger);
      EXPECT_GT(inspector.Found(), length * 1'800) << "life " << life << ", of " << ledger.sent;
      ExpectWholeStateFiles(dir);
    }
  });
  EXPECT_EQ(result.exit_status, 0) << result.output;
}

}  // namespace
