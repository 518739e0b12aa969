// Any bytes as the station's configuration file: they are refused with the file's name in front, or give settings
// within their ranges, and these, written down by a plain writer and read again, are the same.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>

#include "station/settings.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

const std::string kPath = "/tmp/moorlog-settings-" + std::to_string(getpid()) + ".toml";

// False, with the error, for settings that can't be taken.
bool Read(const std::string& text, Settings& settings, std::string& error) {
  std::ofstream(kPath, std::ios::binary) << text;
  const char* const words[] = {"moorlog-station", "--config", kPath.c_str()};
  try {
    ReadSettings(3, words, settings);
  } catch (const SettingsError& refused) {
    error = refused.what();
  }
  unlink(kPath.c_str());
  return error.empty();
}

std::string Written(const Settings& s) {
  std::ostringstream out;
  out << std::boolalpha;
  const auto text = [&](const char* key, const std::string& value) { out << key << " = \"" << value << "\"\n"; };
  text("name", s.name);
  text("user", s.user);
  text("state", s.state);
  out << "verbose = " << s.verbose << "\n[disk]\nboard = " << s.disk.board << "\nsplit = " << s.disk.split
      << "\npercent = " << s.disk.percent << '\n';
  text("path", s.disk.path);
  out << "[control]\nport = " << s.control.port << '\n';
  text("interface", s.control.interface);
  out << "[analyser]\nport = " << s.analyser.port << "\nrecord = \"" << s.analyser.record << "\"\n";
  if (!s.analyser.columns.empty()) {
    const char* separator = "columns = [\"";
    for (const std::string& column : s.analyser.columns) out << separator << column, separator = "\", \"";
    out << "\"]\n";
  }
  out << "[gps]\nrecord = " << s.gps.record << '\n';
  text("device", s.gps.device);
  text("pulse", s.gps.pulse);
  out << "[sonic]\nrecord = " << s.sonic.record << '\n';
  text("device", s.sonic.device);
  out << "[soil]\nrecord = " << s.soil.record << "\n[modules]\nrecord = " << s.modules.record << "\n[button]\n";
  text("device", s.button.device);
  out << "[campbell]\nport = " << s.campbell.port << '\n';
  text("directory", s.campbell.directory);
  out << "[clock]\nmode = \"" << s.clock.mode << "\"\nproportional = " << s.clock.proportional
      << "\nintegral = " << s.clock.integral << '\n';
  text("rtc", s.clock.rtc);
  return out.str();
}

// Texts that the plain writer has a form for.
bool IsPlain(const Settings& s) {
  const auto plain = [](const std::string& text) {
    for (const unsigned char c : text)
      if (c < ' ' || c > '~' || c == '"' || c == '\'' || c == '\\' || c == '`' || c == '#' || c == '[' || c == ']' ||
          c == ',')
        return false;
    return text.empty() || (text.front() != ' ' && text.back() != ' ');
  };
  for (const std::string& column : s.analyser.columns)
    if (!plain(column) || column.empty()) return false;
  for (const std::string& text : {s.name, s.user, s.state, s.disk.path, s.control.interface, s.gps.device, s.gps.pulse,
                                  s.sonic.device, s.button.device, s.campbell.directory, s.clock.rtc})
    if (!plain(text)) return false;
  return true;
}

bool IsWithin(int value, int least, int most) {
  return value >= least && value <= most;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Settings settings, again;
  std::string error;
  if (!Read(std::string(reinterpret_cast<const char*>(data), size), settings, error)) {
    Require(error.starts_with(kPath + ':') || error.starts_with("clock.integral: ") ||
            error.starts_with("analyser.col"));
    return 0;
  }
  Require(IsWithin(settings.disk.split, 1, 604'800) && IsWithin(settings.disk.percent, 1, 100));
  Require(IsWithin(settings.control.port, 0, 65'535) && IsWithin(settings.analyser.port, 1, 65'535));
  Require(IsWithin(settings.campbell.port, 1, 65'535) && settings.clock.integral >= settings.clock.proportional);
  Require(IsWithin(settings.clock.proportional, 2, 1'000'000) && IsWithin(settings.clock.integral, 4, 1'000'000));
  Require(settings.name.find('/') == std::string::npos && !settings.name.empty());
  Require(!settings.state.empty() && !settings.disk.path.empty());
  for (const std::string& path : {settings.state, settings.disk.path, settings.gps.device, settings.clock.rtc})
    Require(path.empty() || path.front() == '/');
  if (!IsPlain(settings)) return 0;
  Require(Read(Written(settings), again, error));
  Require(Written(again) == Written(settings));
  return 0;
}
