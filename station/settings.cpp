#include "station/settings.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <istream>
#include <map>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

#include "station/wholenumber.h"

namespace {

constexpr const char* kDefaultFile = "/etc/moorlog/station.toml";
const std::set<std::string> kCommands = {"config", "check", "seconds", "help", "version"};  // not in a file
constexpr int kMostSeconds = 2'000'000;  // a timer's milliseconds are an int

// Names and directories become words of zip's command line, which takes some characters for a pattern.
std::string CheckWord(const std::string& text) {
  if (!text.starts_with('-') && text.find_first_of(" \t\r\n\"'\\*?[]") == std::string::npos) return "";
  return "'" + text + "' can't be part of a data file's name: no blanks, quotes and \\*?[], and no '-' in front";
}

std::string CheckName(const std::string& text) {
  return text.find('/') == std::string::npos ? CheckWord(text) : "'" + text + "' is a path, and no name";
}

std::string CheckPath(const std::string& text) {
  return text.starts_with('/') ? CheckWord(text) : "'" + text + "' doesn't begin with '/'";
}

std::string CheckUser(const std::string& text) {
  return text.empty() ? "a user's name is wanted" : "";
}

CLI::Validator Given(std::string (*check)(const std::string&)) {
  return {[check](std::string& text) { return check(text); }, ""};
}

// "" stands for none.
CLI::Validator Optional(std::string (*check)(const std::string&)) {
  return {[check](std::string& text) { return text.empty() ? "" : check(text); }, ""};
}

// Without a comment, which doesn't begin within quotes, and without blanks around.
std::string Bare(const std::string& line) {
  size_t end = 0;
  for (char quote = 0; end < line.size() && (quote != 0 || line[end] != '#'); ++end) {
    if (quote == 0 && (line[end] == '"' || line[end] == '\''))
      quote = line[end];
    else if (line[end] == quote)
      quote = 0;
  }
  return CLI::detail::trim_copy(line.substr(0, end));
}

class Reader {
 public:
  Reader(Settings& settings, Command& command) : _settings(settings) {
    _app.set_help_flag("-h,--help", "say this");
    _app.set_version_flag("--version", MOORLOG_VERSION);
    _app.add_option("--config", _file, "the configuration file")->type_name("FILE")->default_str(kDefaultFile);
    _app.add_flag("--check", command.check, "read the settings, say what would run, and end");
    _Number("--seconds", command.seconds, 1, kMostSeconds, "end after so many seconds");

    _Text("--name", settings.name, Optional(CheckName), "what the data files' names begin with");
    _Text("--user", settings.user, Given(CheckUser), "whose rights the station works with");
    _Text("--state", settings.state, Given(CheckPath), "directory of what has to survive a restart");
    _Flag("--verbose", settings.verbose, "tell what the parts do");
    _Text("--disk.path", settings.disk.path, Given(CheckPath), "where the disk is mounted");
    _Flag("--disk.board", settings.disk.board, "that path may be on the board's own disk");
    _Number("--disk.split", settings.disk.split, 1, 604'800, "seconds, the length of a file");
    _Number("--disk.percent", settings.disk.percent, 1, 100, "of the disk, for all files together");
    _Number("--control.port", settings.control.port, 0, 65'535, "TCP port for tools; 0: one of the system's choice");
    _Text("--control.interface", settings.control.interface, Optional(CheckName),
          "network interface it can be reached from");
    _Number("--analyser.port", settings.analyser.port, 1, 65'535, "of an analyser that is given by its address");
    _app.add_option("--analyser.record", settings.analyser.record,
                    "its lines as they come, some of their columns, or none")
        ->check(CLI::IsMember({"all", "some", "none"}))
        ->type_name("all|some|none");
    _app.add_option("--analyser.columns", settings.analyser.columns, "those columns")->type_name("NAME...");
    _Device("--gps.device", settings.gps.device, "serial port of the GPS receiver");
    _Device("--gps.pulse", settings.gps.pulse, "device of its pulse per second");
    _Flag("--gps.record", settings.gps.record, "write its fixes to files");
    _Device("--sonic.device", settings.sonic.device, "serial port of the anemometer");
    _Flag("--sonic.record", settings.sonic.record, "write its records to files");
    _Device("--button.device", settings.button.device, "of the push button with its light");
    _Flag("--soil.record", settings.soil.record, "write the soil chamber's reports to files");
    _Flag("--modules.record", settings.modules.record, "write the modules' rows to day files");
    _Number("--campbell.port", settings.campbell.port, 1, 65'535, "of the Campbell logger's web interface");
    _Text("--campbell.directory", settings.campbell.directory, Optional(CheckPath),
          "where the rows are put for the upload");
    _app.add_option("--clock.mode", settings.clock.mode, "set the system's clock by the GPS, or only watch it")
        ->check(CLI::IsMember({"set", "watch"}))
        ->type_name("set|watch");
    _Number("--clock.proportional", settings.clock.proportional, 2, 1'000'000, "divisor of the clock's control law");
    _Number("--clock.integral", settings.clock.integral, 4, 1'000'000, "the other one, not below the first");
    _Device("--clock.rtc", settings.clock.rtc, "hardware clock");
  }

  void Read(int argc, const char* const* argv) {
    try {
      _app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
      std::exit(_app.exit(help));
    } catch (const CLI::CallForVersion& version) {
      std::exit(_app.exit(version));
    } catch (const CLI::ParseError& error) {
      throw SettingsError(error.what());
    }
    _ReadFile();
    _Require(_settings.clock.integral >= _settings.clock.proportional, "clock.integral",
             "clock.integral: not below clock.proportional, or the clock swings");
    _Require(_settings.analyser.record != "some" || !_settings.analyser.columns.empty(), "analyser.record",
             "analyser.columns: 'some' wants their names");
    _Require(_settings.gps.pulse.empty() || !_settings.gps.device.empty(), "gps.pulse",
             "gps.pulse: nothing without gps.device, which names the pulses");
    _RequireOwnDevices();
  }

 private:
  CLI::Option* _Number(const std::string& name, int& value, int least, int most, const std::string& what) {
    return _app.add_option(name, value, what)
        ->transform(WholeNumber(least, most))
        ->capture_default_str()
        ->type_name(WholeNumberName(least, most));
  }
  void _Text(const std::string& name, std::string& value, const CLI::Validator& check, const std::string& what) {
    _app.add_option(name, value, what)->check(check)->capture_default_str()->type_name("TEXT");
  }
  void _Device(const std::string& name, std::string& value, const std::string& what) {
    _Text(name, value, Optional(CheckPath), what);
  }
  void _Flag(const std::string& name, bool& value, const std::string& what) {
    _app.add_option(name, value, what)
        ->check(CLI::IsMember({"true", "false"}))
        ->capture_default_str()
        ->type_name("true|false");
  }

  std::string _Path() const { return _file.empty() ? kDefaultFile : _file; }

  bool _IsSection(const std::string& begin) const {
    const auto options = _app.get_options();
    return std::any_of(options.begin(), options.end(),
                       [&](const CLI::Option* option) { return option->get_name().starts_with("--" + begin); });
  }

  // What stands in the file.
  [[noreturn]] void _Fail(const std::string& key, const std::string& what) const {
    const auto line = _lines.find(key);
    throw SettingsError(_Path() + ':' + (line == _lines.end() ? "" : std::to_string(line->second) + ':') + ' ' + what);
  }

  // What doesn't go together, on whichever way it has come.
  void _Require(bool condition, const std::string& key, const std::string& what) const {
    if (condition) return;
    if (_lines.contains(key)) _Fail(key, what);
    throw SettingsError(what);
  }

  void _RequireOwnDevices() const {
    std::map<std::string, std::string> taken;
    for (const auto& [key, device] : {std::pair("gps.device", _settings.gps.device),
                                      {"gps.pulse", _settings.gps.pulse},
                                      {"sonic.device", _settings.sonic.device},
                                      {"button.device", _settings.button.device}}) {
      const std::string& owner = taken.try_emplace(device, key).first->second;
      _Require(device.empty() || owner == key, key, std::string(key) + ": '" + device + "' is " + owner + " already");
    }
  }

  // Where each key stands, as "gps.device", and each section, as "gps."; what else is wrong with the form is CLI11's to
  // say. It would take any line for an array's that begins above and doesn't end: it is given each array on one line.
  std::string _Scan(const std::string& text) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    std::istringstream in(text.starts_with(kByteOrderMark) ? text.substr(kByteOrderMark.size()) : text);
    std::string scanned, line, section;
    for (int number = 1; std::getline(in, line); ++number) {
      line = Bare(line);
      const size_t equals = line.find('=');
      if (line.starts_with('[') && line.ends_with(']')) {
        section = CLI::detail::trim_copy(line.substr(1, line.size() - 2)) + '.';
        _lines[section] = number;
        if (!_IsSection(section))
          _Fail(section, "there is no section '" + section.substr(0, section.size() - 1) + '\'');
      } else if (!line.empty()) {
        const std::string key = section + CLI::detail::trim_copy(line.substr(0, equals));
        if (const int before = std::exchange(_lines[key], number); before != 0)
          _Fail(key, key + ": stands in line " + std::to_string(before) + " already");
        const std::string value = equals == std::string::npos ? "" : Bare(line.substr(equals + 1));
        if (value.empty()) _Fail(key, key + ": '=' and a value are wanted");
        const bool array = value.starts_with('[');
        for (std::string more; array && !line.ends_with(']'); ++number, line += Bare(more))
          if (!std::getline(in, more) || Bare(more).starts_with('[') || more.find('=') != std::string::npos)
            _Fail(key, key + ": the array doesn't end");
      }
      scanned += line + '\n';
    }
    return scanned;
  }

  // What the command line has set stays.
  void _ReadFile() {
    std::error_code unknown;
    if (_file.empty() && !std::filesystem::exists(_Path(), unknown)) return;  // none is asked for, and none is there
    std::ifstream file(_Path());
    file.peek();  // a directory can be opened
    if (!file) throw SettingsError(_Path() + ": can't be read");
    std::istringstream in(_Scan(std::string(std::istreambuf_iterator<char>(file), {})));
    std::vector<CLI::ConfigItem> items;
    try {
      CLI::ConfigTOML toml;
      toml.comment('\0');  // they are off, and it would look within quotes
      items = toml.from_config(in);
    } catch (const CLI::ParseError& error) {
      _Fail("", error.what());
    }
    for (const CLI::ConfigItem& item : items) {
      if (item.name == "++" || item.name == "--") continue;  // a section begins or ends
      const std::string key = item.fullname();
      CLI::Option* const option = _app.get_option_no_throw("--" + key);
      if (option == nullptr || kCommands.contains(key)) _Fail(key, "there is no key '" + key + "'");
      if (item.inputs.size() != 1 && option->get_items_expected_max() == 1) _Fail(key, key + ": one value is wanted");
      if (option->count() > 0 || item.inputs.empty()) continue;
      try {
        option->add_result(item.inputs);
        option->run_callback();
      } catch (const CLI::ParseError& error) {
        const std::string what = error.what();
        _Fail(key, what.starts_with("--") ? what.substr(2) : what);
      }
    }
  }

  CLI::App _app{
      "The station of the logger: reads all instruments, keeps the clock and the disk. What follows can also\n"
      "stand in the configuration file; what is said here wins.",
      "moorlog-station"};
  Settings& _settings;
  std::string _file;
  std::map<std::string, int> _lines;  // of the file, by key
};

}  // namespace

Command ReadSettings(int argc, const char* const* argv, Settings& settings) {
  Command command;
  Reader(settings, command).Read(argc, argv);
  if (settings.name.empty()) {
    char host[256] = {};
    settings.name = gethostname(host, sizeof host - 1) == 0 && host[0] != 0 ? host : "station";
  }
  return command;
}
