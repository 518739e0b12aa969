// Shows the settings of a methane analyser as they arrive, and its data lines thinned to some columns; sends what is
// typed, a document a line.
//
//   analyser                             brings an analyser of its own up, at which somebody turns a setting each 2 s
//   analyser TARGET                      an analyser's IPv4 address, or the name under which it is announced
//   analyser --columns CH4,RSSI ...      of the data lines; CH4, TEMP and PRESSURE otherwise
//   analyser --seconds 60 ...            ends by itself
//   echo '<tarno><tn5500><output><rate>1</rate></output></tn5500></tarno>' | analyser
//
// The first thing that it sends is a question for all settings. docs/configuration.md tells what else there is to say.
// To find an analyser by its name, an Avahi daemon has to run on this host.

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <iostream>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "analyser/datahandler.h"
#include "analyser/head.h"
#include "emulators/analyser.h"
#include "examples/commandline.h"
#include "examples/target.h"
#include "examples/timer.h"
#include "logging/includecols.h"
#include "runtime/delimparser.h"
#include "runtime/pollprocessor.h"

namespace {

constexpr const char* kQuestion = "<tarno><tn5500>&query;</tn5500></tarno>\n";

// Lines of standard input. Waits until it is registered.
class Keyboard : public PollItem {
 public:
  explicit Keyboard(std::function<void(std::string)> action) : PollItem(POLLIN, false), _action(std::move(action)) {}

  void Listen() {
    if (!_ended) Register();
  }

  int Fileno() const override { return STDIN_FILENO; }
  void HandleRead() override {
    std::string bytes(4'096, ' ');
    const ssize_t size = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (size <= 0) return _End();
    bytes.resize(static_cast<size_t>(size));
    _lines.AppendRawData(bytes);
    for (std::string line; _lines.GetNextDelimString(line);) _action(line);
  }
  void HandleHangUp() override { HandleRead(); }
  void HandleInvalid() override { _End(); }
  const char* Description() const override { return "Keyboard"; }

 private:
  void _End() {
    _ended = true;
    UnRegister();
  }

  const std::function<void(std::string)> _action;
  DelimParser _lines{"\n"};
  bool _ended = false;
};

class Terminal : public Head::Listener, public DataHandler::Listener {
 public:
  explicit Terminal(const std::set<std::string>& columns) {
    _handler.RegisterListener(this);
    _filter.ColsToInclude(columns);
  }
  ~Terminal() noexcept override {}

  void Connect(Head head, const std::string& target) {
    _head.emplace(std::move(head));
    _head->Connect(target);
  }
  int Lines() const { return _lines; }
  int Settings() const { return _settings; }
  int Sent() const { return _sent; }

  void HeadConnected(std::string target) override {
    _handler.DispatchConnected(target);
    _Send(kQuestion);
    _keyboard.Listen();
  }
  void HeadClosed() override {
    _keyboard.UnRegister();
    _handler.DispatchDisconnected();
  }
  // A document with a bad address must not end the connection: it would come again with the next one.
  void HeadGotLine(std::string line) override try { _handler.DispatchLine(line); } catch (const std::exception& error) {
    std::cout << "ERROR: " << error.what() << std::endl;
  }

  void DataHandler_Connected(std::string peer) override { std::cout << "connected to " << peer << std::endl; }
  void DataHandler_Disconnected() override { std::cout << "disconnected" << std::endl; }
  void DataHandler_GotXMLLine(std::string line) override {
    if (line.find("<ack>") != std::string::npos) std::cout << "acknowledged" << std::endl;
    if (line.find("<error>") != std::string::npos) std::cout << "refused   " << line << std::flush;
  }
  void DataHandler_GotXMLDoc(const Doc5500& document) override { _Show(document.tn5500, ""); }
  void DataHandler_GotDATAHColumns(std::vector<std::string> columns) override {
    std::cout << _filter.ApplyFilterToDATAH(columns) << std::flush;
  }
  void DataHandler_GotDATAColumns(std::vector<std::string> columns) override {
    ++_lines;
    std::cout << _filter.ApplyFilterToDATA(columns) << std::flush;
  }
  // What is asked for without its tags, as by &query_item;.
  void DataHandler_GotUnknownLine(std::string line) override { std::cout << "answer    " << line << std::flush; }

 private:
  void _Send(const std::string& line) {
    ++_sent;
    _head->Send(line);
  }

  // Each value that is marked.
  void _Show(const ConfigurableComposite& section, const std::string& path) {
    for (const Configurable* item : section.children()) {
      if (!item->is_enabled() || !item->has_changed()) continue;
      if (const auto* below = dynamic_cast<const ConfigurableComposite*>(item)) {
        _Show(*below, path + item->get_name() + '/');
        continue;
      }
      ++_settings;
      item->write(std::cout << "setting   " << path << item->get_name() << " = ") << std::endl;
    }
  }

  DataHandler _handler;
  IncludeCols _filter;
  Keyboard _keyboard{[this](const std::string& line) { _Send(line); }};
  std::optional<Head> _head;
  int _lines = 0;
  int _settings = 0;
  int _sent = 0;
};

// An analyser in no hurry, and somebody at its panel.
class Demonstration {
 public:
  Demonstration() { _analyser.SetRate(2); }
  Head Link(Head::Listener* listener) const { return {listener, _analyser.Port(), false}; }
  const std::string& Host() const { return _analyser.Host(); }

 private:
  static constexpr int kPeriod = 1'000;  // milliseconds

  void _TurnSomething() {
    _panel.AddTimeout(kPeriod);
    ++_turns;
    _analyser.Turn("<cfg><spinmirror><duration>" + std::to_string(30 + _turns % 10) + "</duration></spinmirror></cfg>");
    if (_turns % 5 == 1) _analyser.Turn("<cmd><ch4zero>true</ch4zero></cmd>");
  }

  Analyser _analyser;
  Timer _panel{kPeriod, [this] { _TurnSomething(); }};
  int _turns = 0;
};

struct Options {
  std::string target;  // empty: the emulator
  std::vector<std::string> columns = {"CH4", "TEMP", "PRESSURE"};
  int seconds = 0;  // 0: no end
};

// The columns that there are; the time's two come in any case.
std::string CheckColumn(std::string& name) {
  std::set<std::string> names;
  ConfigBoxData(true).GetTrueSet(names);
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::toupper(c); });
  if (names.count(name) != 0) return "";
  std::string all;
  for (const std::string& known : names) all += ' ' + known;
  return "no column " + name + "; there are" + all;
}

Options Read(int argc, char** argv) {
  Options options;
  CommandLine line(
      "Shows an analyser's settings and data lines and sends what is typed. Without a target it brings an analyser of "
      "its own up.");
  line.add_option("target", options.target, "its IPv4 address, or the name it is announced under")
      ->type_name("")
      ->check(CheckTarget);
  line.add_option("--columns", options.columns, "of the data lines, with commas between them")
      ->delimiter(',')
      ->transform(CLI::Validator(CheckColumn, ""))
      ->type_name("NAMES")
      ->capture_default_str();
  line.AddSeconds(options.seconds);
  line.Read(argc, argv);
  return options;
}

}  // namespace

int main(int argc, char** argv) try {
  const Options options = Read(argc, argv);
  std::optional<Demonstration> demonstration;
  if (options.target.empty()) demonstration.emplace();

  Terminal terminal({options.columns.begin(), options.columns.end()});
  if (demonstration)
    terminal.Connect(demonstration->Link(&terminal), demonstration->Host());
  else
    terminal.Connect(LinkTo(&terminal, options.target, false), options.target);
  RunLoop(options.seconds);
  return LastLine({{"lines", terminal.Lines()}, {"settings", terminal.Settings()}, {"sent", terminal.Sent()}});
} catch (const std::exception& error) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  return 1;
}
