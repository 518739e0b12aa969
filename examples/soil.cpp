// Runs the soil chamber's manager, and shows each observation and report as it comes.
//
//   soil                        an emulated instrument through three days, as fast as they can be computed
//   soil --days 20 --trouble    20 days of one that is stopped, renamed, interrupted and cut off every few hours
//   soil ADDRESS DIRECTORY      an instrument on the network, at port 1526; its progress is kept in DIRECTORY/Soil.conf
//   soil --seconds N ...        ends by itself
//   soil --verbose ...          all that is sent and received as well

#include <algorithm>
#include <ctime>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>

#include "emulators/soilinstrument.h"
#include "emulators/temp_directory.h"
#include "emulators/virtual_time.h"
#include "examples/commandline.h"
#include "examples/timer.h"
#include "soil/soil.h"

namespace {

struct Options {
  std::string address;  // empty: the emulator
  std::string directory;
  int seconds = 0;
  int days = 3;
  bool trouble = false;
  bool verbose = false;
};

Options Read(int argc, char** argv) {
  Options options;
  CommandLine line("Runs the manager of a soil chamber: an emulated one, or that at an address.");
  CLI::Option* const address =
      line.add_option("address", options.address, "IPv4 address or host name of the instrument");
  CLI::Option* const directory =
      line.add_option("directory", options.directory, "where its progress is kept")->check(CLI::ExistingDirectory);
  address->needs(directory);
  line.AddNumber("--days", options.days, 1, 20, "of the emulated instrument");
  line.add_flag("--trouble", options.trouble, "the emulated instrument misbehaves");
  line.add_flag("--verbose", options.verbose, "print all that is sent and received");
  line.AddSeconds(options.seconds);
  line.Read(argc, argv);
  return options;
}

struct Manager : Soil {
  Manager(const std::string& directory, bool verbose) : Soil(false, verbose) { _confDirectory = directory; }
};

class Display : public Soil::Listener {
 public:
  int Reports() const { return _reports; }
  int Lines() const { return _lines; }
  int Errors() const { return _errors; }

  void GotSoilConnected(std::string connectedTo) override { Print("connected to " + connectedTo); }
  void GotSoilData(SoilData& data) override {
    constexpr int kShown = 500;  // the first of so many
    if (_lines++ % kShown != 0) return;
    std::ostringstream text;
    text << data;
    Print(text.str());
  }
  void GotSoilReport(long timestamp, std::string report) override {
    ++_reports;
    Print("report of " + Formatted(timestamp, "%Y-%m-%d %H:%M:%S") + ", " + std::to_string(report.size()) +
          " bytes: " + report.substr(0, report.find("\r\n", report.find('\n') + 1)));
  }
  void GotSoilError(std::string error) override {
    ++_errors;
    Print("ERROR: " + error);
  }

 private:
  static std::string Formatted(time_t moment, const char* format) {
    char text[32];
    return {text, strftime(text, sizeof text, format, localtime(&moment))};
  }
  static void Print(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n' || c == '\t'; }, ' ');
    std::cout << Formatted(time(nullptr), "%m-%d %H:%M:%S  ") << text << std::endl;
  }

  int _reports = 0, _lines = 0, _errors = 0;
};

// An instrument, and a directory that goes when the program ends. Time jumps from one event to the next.
class Demonstration {
 public:
  explicit Demonstration(bool trouble) {
    _instrument.SetClockError(-4'321);
    if (trouble) _trouble.SetTimeout(kTrouble);
  }

  const std::string& Directory() const { return _directory.Path(); }
  const std::string& Host() const { return _instrument.Host(); }
  size_t Finished() const { return _instrument.Finished().size(); }

 private:
  static constexpr int kTrouble = 5 * 3'600'000;  // milliseconds

  void _MakeTrouble() {
    _trouble.AddTimeout(kTrouble);
    _instrument.Misbehave(_kind++ % SoilInstrument::kMisbehaviours);
  }

  VirtualTime _time{time(nullptr)};
  const TempDirectory _directory;
  SoilInstrument _instrument{"127.0.15.3", {120, 1'800, 120}};
  int _kind = 0;
  Timer _trouble{-1, [this] { _MakeTrouble(); }};
};

}  // namespace

int main(int argc, char** argv) try {
  Options options = Read(argc, argv);
  std::optional<Demonstration> demonstration;
  if (options.address.empty()) {
    demonstration.emplace(options.trouble);
    options.address = demonstration->Host();
    options.directory = demonstration->Directory();
    if (options.seconds == 0) options.seconds = options.days * 86'400;
  }
  Display display;
  Manager soil(options.directory, options.verbose);
  soil.RegisterListener(&display);
  soil.Connect(options.address);
  RunLoop(options.seconds);
  if (demonstration) std::cout << "the instrument finished " << demonstration->Finished() << " observations\n";
  return LastLine({{"reports", display.Reports()}, {"data lines", display.Lines()}, {"errors", display.Errors()}});
} catch (const std::exception& error) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  return 1;
}
