// Pulls a Campbell logger, and shows its lines and the files that are stored as they come.
//
//   campbell                     an emulated logger through a quarter of a virtual hour, with a wrong clock at first,
//   and
//                                another program, an outage and replies of all kinds later on
//   campbell ADDRESS DIRECTORY   a logger on the network, at port 80; the rows of its data table and PullCSI.conf go
//                                into DIRECTORY
//   campbell --table NAME ...    of another data table than MoorcloudData
//   campbell --every N ...       asked every N seconds, 60 otherwise
//   campbell --seconds N ...     ends by itself
//   campbell --verbose ...       headers and documents as well

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <optional>
#include <set>
#include <string>

#include "csi/pullcsi.h"
#include "emulators/campbelllogger.h"
#include "emulators/temp_directory.h"
#include "emulators/virtual_time.h"
#include "examples/commandline.h"
#include "examples/timer.h"

namespace {

constexpr int kPort = 80;

struct Options {
  std::string address;  // empty: the emulator
  std::string directory;
  std::string table = "MoorcloudData";
  int seconds = 0;
  int every = 60;
  bool verbose = false;
};

Options Read(int argc, char** argv) {
  Options options;
  CommandLine line("Pulls a Campbell logger: an emulated one, or that at an address.");
  CLI::Option* const address = line.add_option("address", options.address, "IPv4 address or host name of the logger");
  CLI::Option* const directory =
      line.add_option("directory", options.directory, "where rows go")->check(CLI::ExistingDirectory);
  address->needs(directory);
  line.add_option("--table", options.table, "name of the data table");
  line.AddNumber("--every", options.every, 5, 86'400, "seconds between queries of the data table");
  line.add_flag("--verbose", options.verbose, "print headers and documents");
  line.AddSeconds(options.seconds);
  line.Read(argc, argv);
  return options;
}

struct Pull : PullCSI {
  Pull(LinuxClock& clock, const Options& options, int port)
      : PullCSI(clock, options.directory, options.directory, options.every, options.verbose, port) {
    SetCSITable(options.table);
  }
};

class Display : public PullCSI::Listener {
 public:
  // Files that are there already aren't shown.
  explicit Display(std::string directory) : _directory(std::move(directory)) {
    for (const auto& file : std::filesystem::directory_iterator(_directory)) _seen.insert(file.path().filename());
  }

  int Lines() const { return _lines; }
  int Rows() const { return _rows; }

  void GotCSIHeader(std::string line) override { std::cout << line; }
  void GotCSIData(std::string line) override {
    ++_lines;
    std::cout << line << std::flush;
  }
  void ShowRows() {
    for (const auto& file : std::filesystem::directory_iterator(_directory)) {
      const std::string name = file.path().filename();
      if (!name.starts_with("ws-") || !_seen.insert(name).second) continue;
      ++_rows;
      std::cout << "stored " << name << ", " << file.file_size() << " bytes" << std::endl;
    }
  }

 private:
  const std::string _directory;
  std::set<std::string> _seen;
  int _lines = 0, _rows = 0;
};

// A logger, and a directory that goes when the program ends. Time jumps from one event to the next.
class Demonstration {
 public:
  static constexpr int kSeconds = 900;

  explicit Demonstration(const std::string& table) : _logger(table) {
    _logger.SetClockError(-400 * 86'400);
    _change.SetTimeout(kMinute);
  }

  const std::string& Directory() const { return _directory.Path(); }
  CampbellLogger& Logger() { return _logger; }

 private:
  static constexpr int kMinute = 60'000;  // milliseconds

  // Each minute something else.
  void _Change() {
    _change.AddTimeout(kMinute);
    switch (++_minute) {
      case 3:
        return _logger.SetFields({{"CO2", "xsd:float", ""}, {"Valve", "xsd:boolean", "true"}});
      case 4:
        return _logger.SetFraming(CampbellLogger::kInChunks);
      case 5:
        return _logger.Refuse();
      case 7:
        return _logger.Listen();
      default:
        _logger.Misbehave(static_cast<CampbellLogger::Trouble>(_minute % CampbellLogger::kTroubles));
    }
  }

  VirtualTime _time{time(nullptr)};
  const TempDirectory _directory;
  CampbellLogger _logger;
  int _minute = 0;
  Timer _change{-1, [this] { _Change(); }};
};

}  // namespace

int main(int argc, char** argv) try {
  Options options = Read(argc, argv);
  std::optional<Demonstration> demonstration;
  int port = kPort;
  if (options.address.empty()) {
    demonstration.emplace(options.table);
    options.address = "127.0.0.1";
    options.directory = demonstration->Directory();
    port = demonstration->Logger().Port();
    if (options.seconds == 0) options.seconds = Demonstration::kSeconds;
  }
  LinuxClock clock("/usr/share/zoneinfo", "/etc/localtime", "/etc/timezone", "/dev/rtc0");
  Display display(options.directory);
  Pull pull(clock, options, port);
  pull.RegisterListener(&display);
  pull.SetCSIHostname(options.address);
  Timer look(1'000, [&] {
    display.ShowRows();
    look.AddTimeout(1'000);
  });
  RunLoop(options.seconds);
  display.ShowRows();
  if (demonstration)
    std::cout << "the logger's clock is " << demonstration->Logger().ClockError() << " s ahead" << std::endl;
  return LastLine({{"lines", display.Lines()}, {"rows", display.Rows()}});
} catch (const std::exception& error) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  return 1;
}
