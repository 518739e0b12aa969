// Runs a session with data acquisition modules, prints their rows under their headers, and keeps day files.
//
//   daqm                        an emulated bus of five modules; day files go when the program does
//   daqm /media/data --live     keeps the day files, and starts live data
//   daqm --trouble              the emulated modules misbehave every few seconds
//   daqm --port 1 /media/data   the bus on a port of the board, as root
//   daqm --seconds N ...        ends by itself
//   daqm --verbose ...          all that is sent and received as well
//
// and meanwhile, as a tool does,
//
//   nc localhost 50311          all that the bus says; what is typed goes to it
//
// The first rows come some 13 s after the start: modules are asked for their columns 10 s after they were met. Modules
// are set to the system's clock, for want of a GPS receiver. The emulated bus has no power line, so what would be
// written to one is shown, as "Setting GPIO13 to 1"; user 0 has to be had all the same, if only in a user namespace,
// which the program enters where it isn't root. There is one bridge port on a machine: a second session fails.

#include "daqm/daqm.h"

#include <algorithm>
#include <ctime>
#include <iostream>
#include <optional>
#include <string>

#include "emulators/daqmbus.h"
#include "emulators/own_host.h"
#include "emulators/temp_directory.h"
#include "examples/commandline.h"
#include "examples/timer.h"
#include "logging/daqmlogfile.h"

namespace {

struct Options {
  std::string directory;  // empty: one that goes
  int port = 0;           // 0: the emulator
  int seconds = 0;
  bool live = false;
  bool trouble = false;
  bool verbose = false;
};

Options Read(int argc, char** argv) {
  Options options;
  CommandLine line("Runs a session with data acquisition modules: emulated ones, or those at a port of the board.");
  line.add_option("directory", options.directory, "where the day files are kept")->check(CLI::ExistingDirectory);
  line.AddNumber("--port", options.port, 1, 3, "of the board");
  line.add_flag("--live", options.live, "start live data");
  line.add_flag("--trouble", options.trouble, "the emulated modules misbehave");
  line.add_flag("--verbose", options.verbose, "print all that is sent and received");
  line.AddSeconds(options.seconds);
  line.Read(argc, argv);
  return options;
}

class Station : public DAQM::Listener {
 public:
  Station(const std::string& directory, bool verbose) : _session(false, verbose), _files(directory, ".txt", "DAQM") {
    _session.RegisterListener(this);
  }

  DAQM& Session() { return _session; }
  int LastLine() const {
    return ::LastLine({{"rows", _rows}, {"backup rows", _backup_rows}, {"live rows", _live_rows}, {"files", _opened}});
  }

  void GotDAQMConnected(unsigned port) override { std::cout << "connected to port " << port << std::endl; }
  void GotDAQMSerial(std::string id, std::string serial) override {
    std::cout << "module " << id << " has the serial number " << serial << std::endl;
  }
  void GotDAQMVersion(std::string id, std::string version) override {
    std::cout << "module " << id << " has the software " << version << std::endl;
  }
  void GotDAQMDisconnected() override { std::cout << "disconnected" << std::endl; }
  void GotDAQMReserved() override {}

  void GotDAQMHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) override {
    _PrintHeader("stored", names, units);
    _files.SetHeader(names, units);
  }
  void GotDAQMData(long time, const std::vector<double>& values) override {
    _PrintRow("stored", time, values);
    ++_rows;
    _files.SetData(time, values);
    _opened += _files.LogData() ? 1 : 0;
  }
  void GotDAQMBackupHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) override {
    _PrintHeader("backup", names, units);
  }
  void GotDAQMBackupData(long time, const std::vector<double>& values) override {
    _PrintRow("backup", time, values);
    ++_backup_rows;
  }
  void GotDAQMLiveHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) override {
    _PrintHeader("live", names, units);
  }
  void GotDAQMLiveData(long time, const std::vector<double>& values) override {
    _PrintRow("live", time, values);
    ++_live_rows;
  }
  // A station would end its files here, and then be without power.
  void GotDAQMPowerOff() override { std::cout << "the power is about to go" << std::endl; }

 private:
  static void _PrintHeader(const char* kind, const std::vector<std::string>& names,
                           const std::vector<std::string>& units) {
    std::cout << kind;
    for (size_t i = 0; i < names.size(); ++i) std::cout << ' ' << names[i] << " [" << units[i] << ']';
    std::cout << std::endl;
  }
  static void _PrintRow(const char* kind, long time, const std::vector<double>& values) {
    const time_t moment = time;
    char text[32];
    strftime(text, sizeof text, "%H:%M:%S", localtime(&moment));
    std::cout << kind << ' ' << text;
    for (const double value : values) std::cout << ' ' << value;
    std::cout << std::endl;
  }

  DAQM _session;
  DAQMLogFile _files;
  Timer _clock{1'000, [this] {
                 _clock.AddTimeout(60'000);
                 _session.SyncToGPSTime(time(nullptr));
               }};
  int _rows = 0, _backup_rows = 0, _live_rows = 0, _opened = 0;
};

// In the place of port 1.
class Demonstration {
 public:
  explicit Demonstration(bool trouble) {
    if (!BecomeRoot()) throw std::runtime_error("the session needs user 0, or the right to make user namespaces");
    Gpio::_debug = true;
    DAQM::port_to_dev.at(1).device = _bus.Path();
    if (trouble) _trouble.SetTimeout(kTrouble);
  }

 private:
  static constexpr int kTrouble = 7'000;  // milliseconds

  DAQMBus _bus{{}};
  int _kind = 0;
  Timer _trouble{-1, [this] {
                   _trouble.AddTimeout(kTrouble);
                   _bus.Misbehave(_kind % DAQMBus::kMisbehaviours, _kind);
                   ++_kind;
                 }};
};

}  // namespace

int main(int argc, char** argv) try {
  Options options = Read(argc, argv);
  std::optional<Demonstration> demonstration;
  std::optional<TempDirectory> scratch;
  if (options.port == 0) {
    demonstration.emplace(options.trouble);
    options.port = 1;
  }
  if (options.directory.empty()) options.directory = scratch.emplace().Path();
  Station station(options.directory, options.verbose);
  station.Session().Connect(static_cast<unsigned>(options.port));
  if (options.live) station.Session().StartLiveData();
  RunLoop(options.seconds);
  station.Session().Disconnect();
  return station.LastLine();
} catch (const std::exception& error) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  return 1;
}
