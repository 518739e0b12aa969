// Records what a methane analyser sends, until interrupted.
//
//   record                       brings an analyser of its own up, records it for 8 s and shows how the files grow
//   record TARGET DIRECTORY      TARGET is an analyser's IPv4 address, or the name under which it is announced
//   record --split 600 ...       a new file each 600 seconds; 3600 otherwise
//   record --percent 50 ...      of the directory's disk, for all files together; 90 otherwise
//   record --seconds 60 ...      ends by itself
//
// Finished files are packed by zip. To find an analyser by its name, an Avahi daemon has to run on this host.

#include <ctime>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "emulators/analyser.h"
#include "emulators/temp_directory.h"
#include "examples/commandline.h"
#include "examples/recorder.h"
#include "examples/target.h"
#include "examples/timer.h"
#include "runtime/pollprocessor.h"

namespace {

namespace fs = std::filesystem;

constexpr int kSecond = 1'000;  // milliseconds

struct Options {
  std::string target;  // empty: the emulator
  Recorder::Settings settings;
  int seconds = 0;  // 0: no end
};

// The file's whole path becomes a word of zip's command line, which takes some characters for a pattern.
std::string CheckDirectory(const std::string& directory) {
  if (directory.starts_with('-') || directory.find_first_of(" \t\n\"'\\*?[]") != std::string::npos)
    return "zip can't take a file in '" + directory + "': choose a name without blanks, quotes and any of \\*?[]";
  return fs::is_directory(directory) ? "" : "no directory: " + directory;
}

Options Read(int argc, char** argv) {
  constexpr int kWeek = 604'800;
  Options options;
  CommandLine line("Records what a methane analyser sends. Without a target it brings an analyser of its own up.");
  auto* const target = line.add_option("target", options.target, "its IPv4 address, or the name it is announced under");
  auto* const directory = line.add_option("directory", options.settings.directory, "where the files go");
  target->type_name("")->needs(directory)->check(CheckTarget);
  directory->type_name("")->check(CheckDirectory);
  line.AddNumber("--split", options.settings.split_seconds, 1, kWeek, "begin a new file each so many seconds");
  line.AddNumber("--percent", options.settings.percent, 1, 100, "of the disk, for all files together");
  line.AddSeconds(options.seconds);
  line.Read(argc, argv);
  return options;
}

// An analyser in a hurry and a directory that goes when the program ends; files of three seconds.
class Demonstration {
 public:
  explicit Demonstration(Options& options) {
    options.settings.directory = _directory.Path();
    options.settings.split_seconds = 3;
    if (options.seconds == 0) options.seconds = 8;
    _show.SetTimeout(kSecond);
  }

  const std::string& Host() const { return _analyser.Host(); }
  int Port() const { return _analyser.Port(); }

 private:
  void _Show() {
    _show.AddTimeout(kSecond);
    _analyser.SetRate(Analyser::kFastest);  // the link has asked for 10 a second
    for (const fs::path& path : std::set<fs::path>(fs::directory_iterator(_directory.Path()), {})) {
      std::error_code gone;
      const auto size = fs::file_size(path, gone);
      if (!gone) std::cout << "    " << path.filename().string() << ' ' << size << " bytes\n";
    }
    std::cout << std::endl;
  }

  const TempDirectory _directory;
  Analyser _analyser;
  Timer _show{-1, [this] { _Show(); }};
};

// A recorder that says, with the time, how its link fares: each change at once, and once a minute what still fails.
class Reporter : public Recorder {
 public:
  Reporter(const Settings& settings, const std::string& target) : Recorder(settings), _target(target) {
    _Say("trying " + target);
  }

  void HeadOpened() override {
    _opened = _answer_due = true;
    Recorder::HeadOpened();
  }
  void HeadConnected(std::string target) override {
    _Say("connected to " + target);
    _connected = true;
    Recorder::HeadConnected(target);
  }
  void HeadClosed() override {
    _answer_due = false;
    if (std::exchange(_connected, false)) {
      _Say("the connection to " + _target + " has ended; trying again");
      _look.SetTimeout(kFirstLook);
    }
    Recorder::HeadClosed();
  }

 private:
  static constexpr int kFirstLook = 5 * kSecond, kNextLook = 60 * kSecond;

  // Asks the link itself, as a new one takes the place of a silent one without a word.
  void _Look() {
    _look.SetTimeout(kNextLook);
    _connected = GetHead().IsConnected();
    if (!_connected) _Say(_target + (_opened || _answer_due ? " doesn't answer" : " isn't found") + "; trying on");
    _opened = false;
  }
  static void _Say(const std::string& text) {
    const time_t now = time(nullptr);
    std::cout << std::put_time(std::gmtime(&now), "%H:%M:%S UTC ") << text << std::endl;
  }

  const std::string _target;
  bool _connected = false;
  bool _opened = false;      // an attempt has begun since the last look
  bool _answer_due = false;  // and is under way
  Timer _look{kFirstLook, [this] { _Look(); }};
};

}  // namespace

int main(int argc, char** argv) try {
  Options options = Read(argc, argv);
  std::optional<Demonstration> demonstration;
  if (options.target.empty()) demonstration.emplace(options);

  Reporter recorder(options.settings, demonstration ? demonstration->Host() : options.target);
  if (demonstration)
    recorder.ConnectToAddress(demonstration->Host(), demonstration->Port());
  else if (IsAddress(options.target, FamilyIPv4))
    recorder.ConnectToAddress(options.target, kAnalyserPort);
  else
    recorder.ConnectToName(options.target);
  RunLoop(options.seconds);
  return LastLine({{"lines", recorder.Lines()}});
} catch (const std::exception& error) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  return 1;
}
