#include "emulators/soilinstrument.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "runtime/localtime.h"

namespace {

constexpr int kSecond = 1'000;  // milliseconds
constexpr int kPort = 1526;
constexpr int kBytesPerObservation = 4'321;

// What stands between a start tag, which there is, and the next end tag.
std::string Value(const std::string& command, const std::string& tag) {
  const size_t value = command.find("<" + tag + ">") + tag.size() + 2;
  return command.substr(value, command.find("</", value) - value);
}

tm Broken(time_t moment) {
  tm parts = LocalTime(moment);
  parts.tm_isdst = -1;
  return parts;
}

std::string Formatted(time_t moment, const char* format) {
  char text[64];
  const tm parts = Broken(moment);
  return {text, strftime(text, sizeof text, format, &parts)};
}

// The Sunday that began the week, as part of a file's name.
std::string WeekOf(time_t moment) {
  tm parts = Broken(moment);
  parts.tm_mday -= parts.tm_wday;
  const time_t sunday = timegm(&parts);
  gmtime_r(&sunday, &parts);
  char text[32];
  return {text, strftime(text, sizeof text, "-%Y%m%d.47q", &parts)};
}

}  // namespace

SoilInstrument::SoilInstrument(const std::string& host, const Settings& settings)
    : LineServer(host, kPort), PollTimer(settings.data * kSecond, true), _settings(settings) {
  Listen();
}

void SoilInstrument::SetName(const std::string& name) {
  _name = name;
}

void SoilInstrument::SetLocation(const std::string& location) {
  _location = location;
}

void SoilInstrument::Stop() {
  _state = kIdle;
}

void SoilInstrument::Interrupt() {
  Stop();
  Send("<SR><ERROR>Measurement Interruption: chamber</ERROR></SR>\n");
}

void SoilInstrument::CutLine() {
  const std::string line = _DataLine();
  Send(line.substr(0, line.size() / 2));
  HangUp();
}

void SoilInstrument::Misbehave(int which) {
  constexpr int kAway = 20 * 60;  // seconds
  switch (which) {
    case 0:
      return SetName("somebody");
    case 1:
      return HangUp();
    case 2:
      return HangUpAfter(static_cast<int>(_commands.size() % 24));
    case 3:
      return CutLine();
    case 4:
      return Interrupt();
    case 5:
      return SetClockError(_clock_ahead - 4'321);
    case 6:
      return Reset();
    case 7:
      return Stop();
    case 8:
      Refuse();
      HangUp();
      _away = kAway;
      return;
    case 9:
      return SetLocation("EXT");
    default:
      Stall(true);
      _away = kAway;
  }
}

void SoilInstrument::GotLine(const std::string& command) {
  if (_hang_up_after == 0) {
    _hang_up_after = -1;
    HangUp();
    return;
  }
  if (_hang_up_after > 0) --_hang_up_after;
  _commands.push_back(command);
  _Obey(command);
}

void SoilInstrument::_Obey(const std::string& command) {
  const auto has = [&command](const char* text) { return command.find(text) != std::string::npos; };
  if (has("<QUERY>STATE<")) Send(_StateLine());
  if (has("<QUERY>MEAS<")) Send(_MeasurementLine());
  if (has("<LIST>")) Send(_ListLine());
  if (has("<MEAS>STOP<")) Stop();
  if (has("<MEAS>START<") && _state == kIdle) _Start();
  if (has("<MEASUREMENT><NAME>")) _name = Value(command, "NAME");
  if (has("<MEASUREMENT><LOCATION>")) _location = Value(command, "LOCATION");
  if (has("<DELETE>")) _files.erase(Value(command, "DELETE"));
  if (has("<ACTION>GETOB<")) _SendReport(Value(command, "INFILE"), std::atoi(Value(command, "OB").c_str()));
  if (has("<CLOCK>")) {
    tm parts = Broken(_Clock());
    const bool date = has("<DATE>");
    const std::string value = Value(command, date ? "DATE" : "TIME");
    if (date) {
      std::sscanf(value.c_str(), "%4d%2d%2d", &parts.tm_year, &parts.tm_mon, &parts.tm_mday);
      parts.tm_year -= 1900;
      parts.tm_mon -= 1;
    } else {
      std::sscanf(value.c_str(), "%2d%2d%2d", &parts.tm_hour, &parts.tm_min, &parts.tm_sec);
    }
    _clock_ahead = static_cast<int>(mktime(&parts) - time(nullptr));
  }
}

void SoilInstrument::_Start() {
  _state = kPurging;
  _since = time(nullptr);
  // The measurement is appended to its file of this week.
  _BeginFile();
}

void SoilInstrument::_BeginFile() {
  _file = _name + WeekOf(_Clock());
  _files.emplace(_file, 0);
}

void SoilInstrument::HandleTimeout() {
  AddTimeout(_settings.data * kSecond);
  if (_away > 0 && (_away -= _settings.data) <= 0) {
    Stall(false);
    Listen();
  }
  _Advance();
  if (!IsJammed() && !IsStalled()) Send(_DataLine());
}

void SoilInstrument::_Advance() {
  const time_t now = time(nullptr);
  if (_state == kPurging && now - _since >= _settings.purge) {
    _state = kRunning;
    _since += _settings.purge;
  }
  for (; _state == kRunning && now - _since >= _settings.observation; _since += _settings.observation) {
    _finished.push_back({_file, ++_files[_file], _Clock()});
    Send("<SR><INFO>SUMMARY_READY</INFO></SR>\n");
    _BeginFile();
  }
}

std::string SoilInstrument::_DataLine() const {
  char values[256];
  const double wave = static_cast<double>(_Clock() % 100) / 50;
  std::snprintf(values, sizeof values,
                "<CO2>%.3f</CO2><H2O>%.4f</H2O><BENCHTEMP>51.%02d</BENCHTEMP><CHAMBERTEMP>%.2f</CHAMBERTEMP>"
                "<RAWCO2>%d</RAWCO2><RAWH2O>%d</RAWH2O><LABEL>bog</LABEL>",
                412.5 + wave, 9.25 - wave / 8, static_cast<int>(_Clock() % 60), 11.5 + wave, 2'154'321, 1'987'654);
  return "<SR><DATA><TIME>" + Formatted(_Clock(), "%Y%m%d%H%M%S") + "</TIME>" + values + "</DATA></SR><CRC>123</CRC>\n";
}

std::string SoilInstrument::_StateLine() const {
  constexpr const char* kNames[] = {"IDLE", "PURGING", "RUNNING"};
  const auto file = _files.find(_file);
  const int finished = file == _files.end() ? 0 : file->second;
  const bool running = _state == kRunning;
  const int percent = running ? static_cast<int>((time(nullptr) - _since) * 100 / _settings.observation) : 100;
  return std::string("<SR><STATE><INSTRUMENT>") + kNames[_state] + "</INSTRUMENT><CUROB>" +
         std::to_string(finished + (running ? 1 : 0)) + "</CUROB><NEXTOB>60</NEXTOB><OBCOMPLETE>" +
         std::to_string(std::min(percent, running ? 99 : 100)) + "</OBCOMPLETE></STATE></SR>\n";
}

std::string SoilInstrument::_ListLine() const {
  const std::string tag = _location == "EXT" ? "CFLIST" : "LIST";
  std::string line = "<SR><" + tag + ">";
  for (const auto& [name, observations] : _files)
    line += name + "=" + std::to_string(observations * kBytesPerObservation) + ",";
  return line + "</" + tag + "></SR>\n";
}

std::string SoilInstrument::_MeasurementLine() const {
  return "<SR><MEASUREMENT><NAME>" + _name + "</NAME><TYPE>CHAMBER</TYPE><LOCATION>" + _location +
         "</LOCATION></MEASUREMENT></SR>\n";
}

void SoilInstrument::_SendReport(const std::string& file, int number) {
  Observation asked;
  asked.file = file;
  asked.number = number;
  const auto found = std::find(_finished.rbegin(), _finished.rend(), asked);  // of the file that is there now
  if (found == _finished.rend() || _files.count(file) == 0) {
    Send("<SR><ERROR>No such observation</ERROR></SR>\n");
    return;
  }
  Send("<SR><REPORT><OB>" + Escaped(Report(*found)) + "</OB></REPORT></SR>\n");
}

std::string SoilInstrument::Report(const Observation& observation) {
  std::string report = "File:\t" + observation.file + "\r\nObs#:\t" + std::to_string(observation.number) +
                       "\r\nLabel:\tbog/edge <4%0x3D>\r\nType\tEtime\tDate\tTcham\tCO2\tH2O\r\n";
  for (int line = 0; line < 3; ++line)
    report += "1\t" + std::to_string(line) +
              Formatted(observation.ended + line, "\t%Y-%m-%d %H:%M:%S\t11.5\t412.5\t9.25\r\n");
  return report + "CrvFitStatus:\tExp\r\n";
}

std::string SoilInstrument::Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\r') continue;
    constexpr std::string_view kSpecial = "/<>\t\n";
    constexpr const char* kCodes[] = {"%0x2F", "%0x3C", "%0x3E", "%0x9", "%0xA"};
    const size_t special = kSpecial.find(c);
    if (special == std::string_view::npos)
      escaped += c;
    else
      escaped += kCodes[special];
  }
  return escaped;
}
