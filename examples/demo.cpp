// A whole station at work: moorlog-station with an emulated instrument on each of its ports, in real time, and each
// minute what stands there.
//
//   demo                  settings, state and data in a directory that goes when the program does
//   demo build/demo       keeps them there: station.toml, station.log, state/, disk/
//   demo --trouble        every few seconds one of the instruments misbehaves
//   demo --fast           analyser 40 Hz, GPS receiver 10 Hz (the anemometer has 20 Hz in any case)
//   demo --seconds N ...  ends by itself
//
// and meanwhile, as tools do, docs/station.md has more,
//
//   nc localhost 5510     "status", and documents
//   nc localhost 50311    all that the modules' bus says
//
// The station is a program of its own, and looks for the modules at a port of the board that this machine may not have,
// and for their power line. Both are put in its way in a mount namespace, and user 0, which it asks for, in a user
// namespace where this program isn't root. Where a system allows neither it runs without modules. The clock is watched,
// and not set. There is one control port: a second demonstration on the same machine fails.

#include <fcntl.h>
#include <jsoncpp/json/json.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "analyser/head.h"
#include "emulators/must.h"
#include "emulators/own_host.h"
#include "emulators/site.h"
#include "emulators/temp_directory.h"
#include "examples/commandline.h"
#include "examples/timer.h"
#include "net/net_util.h"
#include "runtime/runprogram.h"

namespace {

namespace fs = std::filesystem;

constexpr int kControlPort = 5510;
constexpr int64_t kPatience = 10'000'000'000;  // nanoseconds
constexpr const char* kSoil = "127.0.15.4";

struct Options {
  std::string directory;
  int seconds = 0;
  bool trouble = false;
  bool fast = false;
};

Options Read(int argc, char** argv) {
  Options options;
  CommandLine line("Runs moorlog-station with an emulated instrument on each port, and tells what stands there.");
  line.add_option("directory", options.directory, "where settings, state and data are kept")->type_name("DIRECTORY");
  line.add_flag("--trouble", options.trouble, "the instruments misbehave");
  line.add_flag("--fast", options.fast, "each instrument at the highest rate that it is used at");
  line.AddNumber("--seconds", options.seconds, 1, CommandLine::kLongest, "end after so many seconds");
  line.Read(argc, argv);
  return options;
}

// The two programs stand in the folder station/ of the build, or are installed beside this one.
std::string Program(const std::string& name) {
  const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
  for (const fs::path& path : {here / name, here.parent_path() / "station" / name})
    if (fs::exists(path)) return path;
  throw std::runtime_error("there is no " + name + " beside " + here.string());
}

// Everything that is attached to the station, and what troubles it.
class Instruments {
 public:
  Instruments(bool trouble, bool fast)
      : _site({.fast = fast, .soil = kSoil, .chamber = {.purge = 5, .observation = 20}}) {
    _site.soil.SetName(Hostname());  // it has been set up before: its first reports come at once
    _trouble.SetTimeout(trouble ? kTrouble : -1);
  }

  // The board's settings.
  void Write(const fs::path& directory) const {
    std::ofstream file(directory / "station.toml");
    file << "name = \"demo\"\nuser = \"root\"\nstate = " << directory / "state"
         << "\n[disk]\npath = " << directory / "disk"
         << "\nboard = true\nsplit = 60\n[control]\nport = " << kControlPort << "\n[clock]\nmode = \"watch\"\n"
         << _site.Settings();
    Must(static_cast<bool>(file.flush()), "write ", (directory / "station.toml").string());
  }
  // What the station is told of them.
  std::string Document() const { return _site.Document() + '\n'; }
  const std::string& Bus() const { return _site.modules.Path(); }
  char Light() const { return _site.button.LED(); }

 private:
  static constexpr int kTrouble = 7'000;  // milliseconds

  void _Misbehave() {
    _trouble.AddTimeout(kTrouble);
    const int turn = _turn++ / 6;
    switch (_turn % 6) {
      case 0:
        return turn % 2 == 0 ? _site.analyser.CutLine() : _site.analyser.SendGarbage(5'000);
      case 1:
        return _site.modules.Misbehave(turn % DAQMBus::kMisbehaviours, turn % 5);
      case 2:
        return _site.campbell.Misbehave(static_cast<CampbellLogger::Trouble>(turn % CampbellLogger::kTroubles));
      case 3:
        return _site.sonic.Set({.rate = 20, .bad_sums = turn % 2 == 0});
      case 4:
        return _site.soil.Misbehave(turn % SoilInstrument::kMisbehaviours);
      default:
        return _site.gps.SetFix(turn % 2 != 0);
    }
  }

  Site _site;
  int _turn = 0;
  Timer _trouble{-1, [this] { _Misbehave(); }};
};

// For the process that becomes the station: port 1 of the modules, and their power line. Throws where the system
// doesn't allow it.
void BecomeBoard(const std::string& bus, const std::string& scratch) {
  const auto bind = [](const std::string& what, const std::string& where) {
    std::ofstream(where, std::ios::app).flush();
    Must(mount(what.c_str(), where.c_str(), nullptr, MS_BIND, nullptr) == 0, "show ", what);
  };
  Must(BecomeRoot(), "become user 0");
  Must(EnterOwnMounts(), "mount");
  MountGpio(13);
  // Its own /dev, with what the station opens there.
  MountEmpty(scratch);
  bind(bus, scratch + "/ttyS1");
  for (const char* name : {"/null", "/urandom", "/tty"}) bind(std::string("/dev") + name, scratch + name);
  const std::string terminals = scratch + "/pts";
  fs::create_directory(terminals);
  Must(mount("/dev/pts", terminals.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, "show /dev/pts");
  Must(mount(scratch.c_str(), "/dev", nullptr, MS_MOVE, nullptr) == 0, "move ", scratch);
}

// The loop's own end on a signal is for good; here it goes on, as the station is asked once more.
class Interrupt : public PollSignalHandler {
 public:
  Interrupt() : PollSignalHandler(SIGINT, true) { Register(SIGTERM); }
  void HandleSignal(int /*signal*/) override { _came = true; }
  bool Came() const { return _came; }

 private:
  bool _came = false;
};

// The program, at work as long as the object lives.
class Child {
 public:
  Child(const Instruments& instruments, const fs::path& directory) {
    const std::string program = Program("moorlog-station"), settings = directory / "station.toml";
    const std::string log = directory / "station.log", scratch = directory / "dev";
    fs::create_directories(scratch);
    _pid = fork();
    Must(_pid >= 0, "start ", program);
    if (_pid > 0) return;
    setpgid(0, 0);  // ctrl-C is for us
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    const int out = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    dup2(out, STDOUT_FILENO);
    dup2(out, STDERR_FILENO);
    close_range(STDERR_FILENO + 1, ~0U, 0);  // what the instruments hold
    try {
      BecomeBoard(instruments.Bus(), scratch);
    } catch (const std::exception& error) {
      std::cout << "This system allows no modules here: " << error.what() << std::endl;
    }
    execl(program.c_str(), program.c_str(), "--config", settings.c_str(), nullptr);
    _exit(127);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() { End(); }

  bool HasEnded() {
    if (!_ended) _ended = waitpid(_pid, &_status, WNOHANG) == _pid;
    return _ended;
  }
  // What it has taken so far.
  void PrintUse() const {
    const std::string process = "/proc/" + std::to_string(_pid);  // see proc(5)
    const auto number = [&](const char* file, const char* key) {
      std::ifstream in(process + file);
      std::string word;
      while (in >> word && word != key) continue;
      double value = 0;
      in >> value;
      return value;
    };
    std::ifstream stat(process + "/stat");
    std::string word;
    for (int before = 13; before > 0; --before) stat >> word;
    double user = 0, system = 0;  // in ticks
    stat >> user >> system;
    std::cout << "  use        " << std::fixed << std::setprecision(2)
              << (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK)) << " s of processor time, "
              << std::setprecision(0) << number("/smaps_rollup", "Pss:") << " kB, "
              << number("/status", "voluntary_ctxt_switches:") << " wake-ups" << std::endl;
  }
  // Returns its exit status.
  int End() {
    if (!HasEnded()) {
      kill(_pid, SIGTERM);
      waitpid(_pid, &_status, 0);
      _ended = true;
    }
    return WIFEXITED(_status) ? WEXITSTATUS(_status) : 128 + WTERMSIG(_status);
  }

 private:
  pid_t _pid = -1;
  int _status = 0;
  bool _ended = false;
};

// Asks through the control port, and prints.
class Reporter : private Head::Listener {
 public:
  Reporter(const Instruments& instruments, fs::path disk) : _instruments(instruments), _disk(std::move(disk)) {
    _head.Connect("127.0.0.1");
  }

  bool IsConnected() const { return _head.IsConnected(); }
  void Ask() { _head.Send("status\n"); }
  int Answers() const { return _answers; }
  int64_t Records() const { return _records; }

  // The newest dozen with their sizes; returns how many there are.
  int64_t PrintFiles() const {
    struct File {
      fs::file_time_type time;
      uintmax_t size;
      std::string name;
    };
    constexpr size_t kShown = 12;
    std::vector<File> files;
    uintmax_t bytes = 0;
    std::error_code gone;  // packed meanwhile
    for (const fs::directory_entry& entry : fs::directory_iterator(_disk, gone)) {
      const File file = {entry.last_write_time(gone), entry.file_size(gone), entry.path().filename()};
      if (gone) continue;
      bytes += file.size;
      files.push_back(file);
    }
    std::sort(files.begin(), files.end(), [](const File& a, const File& b) { return a.time > b.time; });
    std::cout << "  files      " << files.size() << " of " << bytes / 1'000 << " kB\n";
    for (size_t i = 0; i < std::min(kShown, files.size()); ++i)
      std::cout << std::setw(12) << files[i].size << ' ' << files[i].name << '\n';
    std::cout << std::flush;
    return static_cast<int64_t>(files.size());
  }

 private:
  void HeadConnected(std::string /*connectedTo*/) override { _head.Send(_instruments.Document()); }

  void HeadGotLine(std::string line) override {
    if (!line.starts_with('{')) {
      if (line.find("<ack>true") == std::string::npos) std::cout << "ERROR: the station answers " << line << std::flush;
      return;
    }
    Json::Value status;
    std::istringstream(line) >> status;
    ++_answers;
    _Print(status);
    PrintFiles();
  }

  void _Print(const Json::Value& status) {
    const auto state = [](const char* word) {
      return std::string(word) + std::string(14 - std::string(word).size(), ' ');
    };
    const time_t now = time(nullptr);
    std::cout << std::put_time(localtime(&now), "%H:%M:%S") << "  version " << status["version"].asString() << ", up "
              << status["uptime"].asInt64() << " s, " << status["memory"].asInt64() / 1'024 << " kB, light "
              << _instruments.Light() << '\n'
              << std::fixed;
    _records = 0;
    for (const std::string& name : status["instruments"].getMemberNames()) {
      const Json::Value& line = status["instruments"][name];
      _records += line["records"].asInt64();
      std::cout << "  " << std::left << std::setw(11) << name
                << state(line["connected"].asBool() ? "connected" : "away") << std::right << std::setw(8)
                << line["records"].asInt64() << " records" << std::setw(8) << std::setprecision(1)
                << line["rate"].asDouble() << " /s" << std::setw(5) << line["bad_sums"].asInt64() << " bad sums";
      if (line.isMember("written"))
        std::cout << std::setw(8) << line["written"].asInt64() << " written" << std::setw(5) << line["lost"].asInt64()
                  << " lost";
      std::cout << '\n';
    }
    const Json::Value& disk = status["disk"];
    std::cout << "  disk       " << (disk["there"].asBool() ? "there, " : "away, ")
              << disk["available"].asUInt64() / 1'000'000 << " MB left\n  clock      ";
    if (status["clock"].isMember("offset"))
      std::cout << std::setprecision(6) << std::showpos << status["clock"]["offset"].asDouble() << std::noshowpos
                << " s off\n";
    else
      std::cout << "no fix with a pulse yet\n";
  }

  const Instruments& _instruments;
  const fs::path _disk;
  Head _head{this, kControlPort, false};
  int _answers = 0;
  int64_t _records = 0;
};

}  // namespace

int main(int argc, char** argv) try {
  const Options options = Read(argc, argv);
  const Interrupt interrupt;
  std::optional<TempDirectory> scratch;
  const fs::path directory =
      options.directory.empty() ? fs::path(scratch.emplace().Path()) : fs::absolute(options.directory);
  for (const char* name : {"state", "disk"}) fs::create_directories(directory / name);

  const Instruments instruments(options.trouble, options.fast);
  instruments.Write(directory);
  Child station(instruments, directory);
  std::cout << "the station is at work in " << directory.string() << ", its control port is " << kControlPort
            << std::endl;
  Reporter reporter(instruments, directory / "disk");
  Timer minute(15'000, [&] {
    minute.AddTimeout(60'000);
    reporter.Ask();
  });
  RunLoop(options.seconds, [&] { return interrupt.Came() || station.HasEnded(); });

  // Once more, and to the end. It may still be starting.
  const int64_t bound = PollTimer::Now() + kPatience;
  const auto pass_until = [&](const auto& done) {
    while (!station.HasEnded() && !done() && PollTimer::Now() < bound) PollProcessor::Instance().Poll(100);
  };
  pass_until([&] { return reporter.IsConnected(); });
  const int answers = reporter.Answers();
  reporter.Ask();
  pass_until([&] { return reporter.Answers() > answers; });
  station.PrintUse();
  const int64_t told = PollTimer::Now();
  const int status = station.End();
  const int64_t taken = (PollTimer::Now() - told) / 1'000'000;
  if (status != 0) {
    std::cerr << "ERROR: moorlog-station has ended with status " << status << ":\n"
              << std::ifstream(directory / "station.log").rdbuf() << std::flush;
    return 1;
  }
  std::cout << "ended within " << taken << " ms\n";
  const int64_t files = reporter.PrintFiles();
  RunProgram(Program("moorlog-verify") + ' ' + (directory / "disk").string(), std::cout);
  return LastLine({{"records", reporter.Records()}, {"files", files}});
} catch (const std::exception& error) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  return 1;
}
