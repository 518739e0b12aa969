// Records what a methane analyser sends, until interrupted.
//
//   record                       brings an analyser of its own up, records it for 8 s and shows how the files grow
//   record TARGET DIRECTORY      TARGET is an analyser's IPv4 address, or the name under which it is announced
//   record --split S ...         a new file each S seconds; 3600 otherwise
//   record --percent P ...       of the directory's disk, for all files together; 90 otherwise
//   record --seconds N ...       ends by itself
//
// Finished files are packed by zip. To find an analyser by its name, an Avahi daemon has to run on this host.

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "emulators/analyser.h"
#include "examples/recorder.h"
#include "examples/timer.h"
#include "net/socketaddress.h"
#include "runtime/errnoexcept.h"
#include "runtime/pollprocessor.h"

namespace {

namespace fs = std::filesystem;

constexpr int kSecond = 1'000;  // milliseconds
constexpr int kPort = 5500;

struct Options {
  std::string target;  // empty: the emulator
  Recorder::Settings settings;
  int seconds = 0;  // 0: no end
};

Options Read(char** arguments) {
  Options options;
  std::vector<std::string> words;
  for (; *arguments != nullptr; ++arguments) {
    const std::string argument = *arguments;
    int* const number = argument == "--split"     ? &options.settings.split_seconds
                        : argument == "--percent" ? &options.settings.percent
                        : argument == "--seconds" ? &options.seconds
                                                  : nullptr;
    if (number != nullptr && arguments[1] != nullptr)
      *number = std::atoi(*++arguments);
    else
      words.push_back(argument);
  }
  if (words.size() == 1 || words.size() > 2) throw std::runtime_error("a target and a directory, please");
  if (words.empty()) return options;
  options.target = words[0];
  options.settings.directory = words[1];
  if (!fs::is_directory(words[1])) throw std::runtime_error("no directory: " + words[1]);
  return options;
}

bool IsAddress(const std::string& target) {
  try {
    return SocketAddress(target).Family() == SocketAddress::FamilyIPv4;
  } catch (const std::exception&) {
    return false;
  }
}

// An analyser in a hurry and a directory that goes when the program ends; files of three seconds.
class Demonstration {
 public:
  explicit Demonstration(Options& options) {
    _directory = fs::temp_directory_path() / "moorlog-record-XXXXXX";
    if (mkdtemp(_directory.data()) == nullptr) throw ErrnoError("Unable to make " + _directory);
    options.settings.directory = _directory;
    options.settings.split_seconds = 3;
    options.seconds = 8;
    _show.SetTimeout(kSecond);
  }
  Demonstration(const Demonstration&) = delete;
  Demonstration& operator=(const Demonstration&) = delete;
  ~Demonstration() {
    std::error_code ignored;
    fs::remove_all(_directory, ignored);
  }

  const std::string& Host() const { return _analyser.Host(); }
  int Port() const { return _analyser.Port(); }

 private:
  void _Show() {
    _show.AddTimeout(kSecond);
    _analyser.SetRate(Analyser::kFastest);  // the link has asked for 10 a second
    for (const fs::path& path : std::set<fs::path>(fs::directory_iterator(_directory), {})) {
      std::error_code gone;
      const auto size = fs::file_size(path, gone);
      if (!gone) std::cout << "    " << path.filename().string() << ' ' << size << " bytes\n";
    }
    std::cout << std::endl;
  }

  std::string _directory;
  Analyser _analyser;
  Timer _show{-1, [this] { _Show(); }};
};

}  // namespace

int main(int, char** argv) try {
  auto& loop = PollProcessor::Instance();
  loop.QuitOnSignal(SIGINT);
  loop.QuitOnSignal(SIGTERM);

  Options options = Read(argv + 1);
  std::optional<Demonstration> demonstration;
  if (options.target.empty()) demonstration.emplace(options);

  Recorder recorder(options.settings);
  if (demonstration)
    recorder.ConnectToAddress(demonstration->Host(), demonstration->Port());
  else if (IsAddress(options.target))
    recorder.ConnectToAddress(options.target, kPort);
  else
    recorder.ConnectToName(options.target);
  const Timer end(options.seconds > 0 ? options.seconds * kSecond : -1, [] { raise(SIGTERM); });
  while (loop.Poll(-1)) {
  }
  return 0;
} catch (const std::exception& error) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  return 1;
}
