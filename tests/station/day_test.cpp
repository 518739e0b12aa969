// A whole station for hours of troubles, killed and started again on the way: what its files hold afterwards.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <jsoncpp/json/json.h>
#include <malloc.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <array>
#include <cmath>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>

#include "daqm/daqm.h"
#include "emulators/own_host.h"
#include "emulators/poll_runner.h"
#include "emulators/shared_memory.h"
#include "emulators/virtual_time.h"
#include "runtime/filesystem.h"
#include "runtime/runprogram.h"
#include "station/station.h"
#include "tests/station/settable_time.h"
#include "tests/station/site_settings.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/setting.h"

namespace {

namespace fs = std::filesystem;

constexpr int kSecond = 1'000, kMinute = 60 * kSecond;  // milliseconds
constexpr int kUnwritten = 200;                         // lines, in 8 KiB and a second
constexpr int kTroubles = 16;

// What the lives of the station leave for the one who looks at its files; in memory that outlives them. Lines of the
// analyser, messages of the anemometer and positions of the receiver are numbered through all lives.
struct Ledger {
  enum { kAnalyser, kSonic, kGPS, kFamilies };
  struct Family {
    // Lines that needn't be in a file; without an end as far as a kill.
    struct Range {
      int from, to = std::numeric_limits<int>::max();
    };
    std::array<Range, 10'000> excused;
    size_t excuses = 0;
    int sent = 0;
  };
  Family families[kFamilies];
  int troubles = 0;
  int deck[kTroubles] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};  // of them, as they come
  int64_t end = VirtualTime::kDefaultWall;
  int64_t lived = 0;  // milliseconds
};

// Ends this process, without a word, once it has worked for so many nanoseconds more: wherever in a pass that may be.
void KillAfter(long nanoseconds) {
  sigevent event{};
  event.sigev_signo = SIGKILL;
  timer_t timer;
  const itimerspec moment{{}, {0, nanoseconds}};
  if (timer_create(CLOCK_PROCESS_CPUTIME_ID, &event, &timer) != 0 || timer_settime(timer, 0, &moment, nullptr) != 0)
    throw std::runtime_error("timer");
}

// One life: emulators, station and their time. The disk is a mount of `drawer`, so that it can be taken away and put
// back. Now and then it is as at a real station, at high rates; most of the time it takes as little as it can: each
// sends once in `pace` seconds, and often there is no Campbell logger, whose answers take a connection each and many a
// file.
class Life {
 public:
  static bool IsFast(unsigned seed) { return seed % 16 == 0; }
  static unsigned Longest(unsigned seed) { return IsFast(seed) ? 10 : seed % 4 == 1 ? 24 * 60 : 60; }  // minutes

  Life(const TempDirectory& dir, Ledger& ledger, unsigned seed, int pace)
      : _dir(dir),
        _disk(dir / "disk"),
        _ledger(ledger),
        _random(seed),
        _time(ledger.end + 600),
        _campbell(seed % 80 != 2 && seed % 8 != 5),
        _site(IsFast(seed) ? Site::Plan{.fast = true, .soil = "127.5.1.8"}
                           : Site::Plan{.sonic_rate = 1,
                                        .pace = pace,
                                        .soil = "127.5.1.8",
                                        .chamber = {.data = 10},
                                        .modules = seed % 2 == 0,
                                        .bus = {.interval = 10}}) {
    _time.Hurry();
    AdoptOrphans();
    settable_time = &_time;
    DAQM::port_to_dev.at(1).device = _site.modules.Path();
    _site.analyser.CountFrom(ledger.families[Ledger::kAnalyser].sent);
    _site.sonic.CountFrom(ledger.families[Ledger::kSonic].sent);
    _site.gps.CountFrom(ledger.families[Ledger::kGPS].sent);
    Settings settings = SettingsFor(_site, dir);
    settings.disk.percent = 100;  // nothing goes, however full it is
    _station.emplace(settings, ZonesIn(dir));
    std::string document = _site.Document();
    if (const size_t at = document.find("<logger>"); !_campbell)
      document.erase(at, document.find("<daqm>", at) - at);  // of what an earlier life was told nothing changes
    _station->Answer(document);
    if (!_site.plan.fast) _site.analyser.SetRate(1, pace);
  }

  // To its end, or to a kill at any moment until then.
  void Run(int minutes, bool killed) {
    _Excuse(Ledger::kSonic, 0).to = _Number(Ledger::kSonic) + 2 * _site.plan.sonic_rate;  // its speed isn't known yet
    Ledger::Family::Range& first_fixes = _Excuse(Ledger::kGPS, 0);
    const int last = static_cast<int>(_random() % static_cast<unsigned>(minutes * kMinute));
    if (killed) _time.Schedule(last, [this] { KillAfter(1 + static_cast<long>(_random() % 10'000'000)); });
    _Pass(2 * kMinute);
    first_fixes.to = _Number(Ledger::kGPS);
    const auto descriptors = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
    const auto held = descriptors();
    size_t heap = 0;
    for (int at = 0; at < minutes || killed; at += 10) {
      const int trouble = _NextTrouble();
      _Trouble(trouble);
      _Pass(10 * kMinute);
      while (wait(nullptr) > 0) continue;  // files are packed in real time, of which a busy machine leaves them little
      Json::Value status;
      std::istringstream(_station->Answer("status")) >> status;
      for (const char* name : {"analyser", "sonic", "gps", _campbell ? "campbell" : "gps"})
        EXPECT_TRUE(status["instruments"][name]["connected"].asBool() &&
                    !status["instruments"][name]["silent"].asBool())
            << name << " after " << trouble;
      EXPECT_TRUE(status["recording"].asBool() && status["disk"]["there"].asBool()) << "after " << trouble << status;
      _site.modules.Forget();
      _site.analyser.ForgetCommands();
      _site.soil.ForgetCommands();
      if (at == 24 * 60) heap = mallinfo2().uordblks;
    }
    _Pass(2 * kMinute);
    EXPECT_LE(descriptors(), held + 4) << "of the hours";  // files of the modules
    // malloc counts as used what it keeps for a thread: seven pieces of each of 64 sizes up to 1 KiB.
    const auto is_flat = [heap] { return heap == 0 || mallinfo2().uordblks < heap + 250'000; };
    // The reclaimer's thread may just have the names of all files.
    for (int look = 0; look < 1'000 && !is_flat(); ++look) usleep(10'000);
    EXPECT_TRUE(is_flat()) << heap << ' ' << mallinfo2().uordblks;
    usleep(100'000);  // for the kernel's worker behind the ptys
    PollPasses(100);
    _station.reset();
    _Note();
  }

 private:
  void _Note() {
    for (int family = 0; family < Ledger::kFamilies; ++family) _ledger.families[family].sent = _Number(family);
    _ledger.end = time(nullptr);
    _ledger.lived = _lived + _time.Elapsed();
  }
  void _Pass(int milliseconds) {
    PollUntil([this] { return _Note(), false; }, milliseconds);
  }
  int _Number(int family) const {
    return family == Ledger::kSonic ? _site.sonic.Sent()
           : family == Ledger::kGPS ? _site.gps.Sent()
                                    : _site.analyser.LinesSent();
  }
  Ledger::Family::Range& _Excuse(int family, int before) {
    Ledger::Family& lines = _ledger.families[family];
    return lines.excused.at(lines.excuses++) = {_Number(family) - before};
  }

  // Lasts for less than ten minutes. Lines that are sent meanwhile may be lost, and so may `before`: of one family, or
  // of all.
  void _Lose(int before, int seconds, const std::function<void()>& end, int after = 3, int only = Ledger::kFamilies) {
    std::vector<std::pair<int, Ledger::Family::Range*>> excused;
    for (int family = 0; family < Ledger::kFamilies; ++family)
      if (only == family || only == Ledger::kFamilies) excused.emplace_back(family, &_Excuse(family, before));
    _Pass(seconds * kSecond);
    end();
    _Pass(after * kSecond);
    for (const auto& [family, range] : excused) range->to = _Number(family) + 1;
  }
  void _LoseOfAnalyser(int before, int seconds, const std::function<void()>& end) {
    _Lose(before, seconds, end, 3, Ledger::kAnalyser);
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
        return _LoseOfAnalyser(2, any, [&] { _site.analyser.Listen(); });
      case 1:
        _site.analyser.Stall(true);
        return _LoseOfAnalyser(0, any, [&] { _site.analyser.Stall(false); });
      case 2:
        _site.analyser.CutLine();
        return _LoseOfAnalyser(1, 1, [] {});
      case 3:
        return _site.analyser.SendGarbage(5'000);
      case 4:
        _site.analyser.Reset();
        return _LoseOfAnalyser(2, 1, [] {});
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
      case 9: {
        AnemometerSettings settings = {.rate = _site.plan.sonic_rate, .seconds = _site.plan.pace, .bad_sums = true};
        _site.sonic.Set(settings);
        settings.bad_sums = false;
        return _Lose(
            0, any, [&] { _site.sonic.Set(settings); }, 0, Ledger::kSonic);
      }
      case 10:
        _site.gps.SetFix(false);
        _Tell("startdaqmlivemeasure");
        _Lose(
            0, any, [&] { _site.gps.SetFix(true); }, 0, Ledger::kGPS);
        return _Tell("stopdaqmlivemeasure");
      case 11:
        _site.button.Press();
        _site.button.Release();
        return _Lose(1, any, [&] { _site.button.Press(), _site.button.Release(); });
      case 12: {  // full
        const std::string filler = Filler(_dir);
        const int file = open(filler.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        for (auto room = static_cast<off_t>(fs::space(_dir / "drawer").available), size = off_t{0}; room > 0; room /= 2)
          while (posix_fallocate(file, size, room) == 0) size += room;
        close(file);  // an open one would keep its room
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
  static std::string Filler(const TempDirectory& dir) { return dir / "drawer/else/filler"; }
  static void Mount(const TempDirectory& dir) {
    if (mount((dir / "drawer").c_str(), (dir / "disk").c_str(), nullptr, MS_BIND, nullptr) != 0)
      throw std::runtime_error("mount");
  }

 private:
  const TempDirectory& _dir;
  const std::string _disk;
  Ledger& _ledger;
  const int64_t _lived = _ledger.lived;
  std::mt19937 _random;
  VirtualTime _time;
  const bool _campbell;
  Site _site;
  std::optional<Station> _station;
};

// Looks at all files after each life, and takes them away but for those that a kill has left open: those are the next
// life's to finish.
class Inspector {
 public:
  explicit Inspector(const TempDirectory& dir) : _drawer(dir / "drawer") {}

  void Look(Ledger& ledger, bool killed) {
    std::string findings;
    RunProgramCaptureStdout(MOORLOG_VERIFY " " + _drawer.string(), findings);
    std::istringstream lines(findings);
    for (std::string line; std::getline(lines, line);) {
      // Modules and Campbell logger have clocks of their own, which are set.
      const bool own_clock = line.find("bog-campbell-") != line.npos || line.find("s.txt:") != line.npos ||
                             line.find("-backup.txt:") != line.npos || line.find("-live.txt:") != line.npos;
      // What a kill has cut off is the next life's to finish.
      const bool cut = killed && line.find(".part:") != line.npos && line.ends_with("the line is cut off");
      if (line.find(" findings, ") == line.npos && !cut && !(own_clock && line.find("the time goes back") != line.npos))
        ADD_FAILURE() << line;
    }
    std::vector<fs::path> finished;
    for (const auto& entry : fs::directory_iterator(_drawer))
      if (entry.path().extension() != ".part" && entry.is_regular_file()) finished.push_back(entry.path());
    for (int family = 0; family < Ledger::kFamilies; ++family)
      _Look(ledger.families[family], _families[family], finished, killed);
    for (const fs::path& path : finished) fs::remove(path);
    if (killed) return;
    for (const auto& entry : fs::directory_iterator(_drawer)) EXPECT_EQ(entry.path().filename(), "else");
  }
  auto Found(int family) const { return std::ranges::count(_families[family].found, true); }

 private:
  struct Family {
    const char* name;
    // Of a line of data and its moment; -1: it is none.
    int (*number)(const std::string& line);
    std::vector<bool> found = {}, excused = {};  // by number
    size_t checked = 0;                          // as far as this
  };

  static void _Look(Ledger::Family& ledger, Family& family, const std::vector<fs::path>& finished, bool killed) {
    if (killed) {
      ledger.excused.at(ledger.excuses++) = {ledger.sent - kUnwritten};
      ledger.sent += kUnwritten;
      for (Ledger::Family::Range& range : ledger.excused) range.to = std::min(range.to, ledger.sent);
    }
    family.found.resize(static_cast<size_t>(ledger.sent));
    family.excused.resize(family.found.size());
    for (const fs::path& path : finished)
      if (path.filename().string().starts_with(family.name)) _Take(path, family);
    if (killed) return;
    for (; ledger.excuses > 0; --ledger.excuses)
      for (auto [number, last] = ledger.excused.at(ledger.excuses - 1); number <= last; ++number)
        if (number >= 0 && number < ledger.sent) family.excused[number] = true;
    for (; family.checked < family.found.size(); ++family.checked)
      if (!family.found[family.checked] && !family.excused[family.checked])
        ADD_FAILURE() << family.name << ": line " << family.checked << " is in no file";
  }

  // An archive whose text is there as well, as its disk went at that moment, isn't looked at.
  static void _Take(const fs::path& path, Family& family) {
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
      const int number = family.number(line);
      if (number < 0) continue;
      if (number <= last) ADD_FAILURE() << path << ": " << number << " behind " << last;
      if (family.found.at(number)) ADD_FAILURE() << path << ": " << number << " once more";
      family.found[number] = true;
      last = number;
    }
  }

  static int _AnalysersNumber(const std::string& line) {
    int seconds = 0, nanoseconds = 0, number = 0;
    if (std::sscanf(line.c_str(), "DATA %d %d %*s %*s %*s %*s %*s %*s %*s %d", &seconds, &nanoseconds, &number) != 3)
      return -1;
    if (line + '\n' != Analyser::DataLine(seconds, nanoseconds, number)) ADD_FAILURE() << line;
    return number;
  }
  static int _SonicsNumber(const std::string& line) {
    double inputs[3];
    if (std::sscanf(line.c_str(), "SONIC %*s %*s %*s %*s %*s %*s %*s %lf %lf %lf", inputs, inputs + 1, inputs + 2) != 3)
      return -1;
    const auto digits = [&](int input) { return static_cast<int>(std::lround((inputs[input] - input) * 1'000)); };
    return digits(0) + 1'000 * digits(1) + 1'000'000 * digits(2);
  }

  static int _ReceiversNumber(const std::string& line) {
    double altitude;
    if (std::sscanf(line.c_str(), "GPS %*s %*s %*s %*s %lf", &altitude) != 1) return -1;
    return static_cast<int>(std::lround((altitude - GPSReceiver::kAltitude) * 1'000));
  }

  const fs::path _drawer;
  Family _families[Ledger::kFamilies] = {
      {"bog-analyser-", _AnalysersNumber}, {"bog-sonic-", _SonicsNumber}, {"bog-gps-", _ReceiversNumber}};
};

// `told`: a life has got as far as its document.
void ExpectWholeStateFiles(const TempDirectory& dir, bool told) {
  DocMoorlog document;
  DocumentFile(dir / "state/moorlog.xml").Load(document);
  EXPECT_TRUE(!told || document.moorlog.cfg.soil.get() == "127.5.1.8");
  for (const char* name : {"state/Soil.conf", "state/PullCSI.conf"}) {
    Json::Value value;
    EXPECT_TRUE(!fs::exists(dir / name) || Json::Reader().parse(dir.Read(name), value)) << dir.Read(name);
  }
}

TEST(StationDay, LosesNothingThatCouldBeWritten) {
  if (geteuid() != 0 || !MountNamespaceAvailable()) GTEST_SKIP() << "needs root, and / to be a mount point";
  const TempDirectory dir;
  const unsigned seed = Setting("MOORLOG_STATION_SEED", 1);
  const int64_t hours = Setting("MOORLOG_STATION_HOURS", 24);
  const int pace = hours > 48 ? 1 : 5;
  auto& ledger = MakeShared<Ledger>();
  ExpectInMountNamespace([&] {
    ASSERT_TRUE(EnterOwnNetwork());
    setenv("TZ", "UTC0", 1);  // each conversion of a time looks at the zone's file otherwise
    AdoptOrphans();           // the zip programs
    for (const char* name : {"rtc", "disk/x/y", "drawer/x", "state/x"}) dir.Write(name, "");
    MountEmpty(dir / "state");  // or each fsync would be a real one
    MountGpio(13);
    MountEmpty(dir / "drawer", "size=" + std::to_string(64 + hours) + 'm');  // none of it is to be reclaimed
    fs::create_directory(dir / "drawer/else");
    Life::Mount(dir);
    std::mt19937 random(seed);
    Inspector inspector(dir);
    for (int left; (left = static_cast<int>(hours * 60 - ledger.lived / kMinute)) > 0;) {
      // In a long run the first life is half of it, of all but the Campbell logger and high rates.
      const bool first = ledger.lived == 0 && hours > 48;
      unsigned fate = random();
      if (first) fate = fate - fate % 80 + 2;
      const int length = first ? left / 2 : std::min<int>(left, 1 + random() % Life::Longest(fate));
      const bool killed = !first && length < left && random() % 2 == 0;
      const ChildResult end = RunInChild([&] {
        if (killed && fate % 8 == 1) KillAfter(1 + fate % 50'000'000);
        Life(dir, ledger, fate, pace).Run(length, killed);
      });
      EXPECT_TRUE(killed ? end.signal == SIGKILL : end.exit_status == 0) << end.signal << end.output;
      for (int status = 0; wait(&status) > 0;) continue;
      if (killed) {  // in the middle of a trouble, perhaps
        unlink(Life::Filler(dir).c_str());
        umount2((dir / "disk").c_str(), MNT_DETACH);
        Life::Mount(dir);
      }
      inspector.Look(ledger, killed);
      ExpectWholeStateFiles(dir, ledger.end != VirtualTime::kDefaultWall);
    }
    for (int family = 0; family < Ledger::kFamilies; ++family)
      EXPECT_GT(2 * inspector.Found(family), ledger.families[family].sent);
  });
}

}  // namespace
