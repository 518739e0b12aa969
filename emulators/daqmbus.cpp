#include "emulators/daqmbus.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "runtime/localtime.h"

namespace {

constexpr int kSecond = 1'000;  // milliseconds
constexpr int kSettled = 70;    // seconds: two rounds of questions
constexpr int kKeptAtOnce = 4;  // moments a second
constexpr int kSilence = 300;   // seconds
constexpr int kLateness = 120;  // seconds
constexpr size_t kTail = 9;     // bytes of sum and line feed
constexpr size_t kMostCommands = 1'000;

// The whole number behind a name; 0 without one.
long NumberBehind(const std::string& text, const std::string& name) {
  const size_t at = text.find(name);
  return at == std::string::npos ? 0 : std::atol(text.c_str() + at + name.size());
}

}  // namespace

DAQMBus::DAQMBus(const Settings& settings)
    : PollItem(POLLIN, true),
      PollTimer(kSecond, true),
      _settings(settings),
      _modules(static_cast<size_t>(settings.modules)),
      _kept_from(time(nullptr) / settings.interval * settings.interval - long{settings.kept} * settings.interval),
      _kept_left(settings.kept) {}

double DAQMBus::ValueOf(int module, int column, long time) {
  return module * 1e7 + column * 1e6 + static_cast<double>(time % 1'000'000);
}

std::string DAQMBus::NameOf(int module, int column) {
  return "M" + std::to_string(module) + "_C" + std::to_string(column);
}

std::string DAQMBus::Framed(const std::string& body) {
  const size_t start = body.find('"', body.find('"') + 1);
  uint32_t sum = 0;
  int shift = 24;
  for (size_t i = start; i < body.size(); ++i, shift = (shift + 24) % 32)
    sum ^= static_cast<uint32_t>(static_cast<unsigned char>(body[i])) << shift;
  char digits[16];
  std::snprintf(digits, sizeof digits, "%08X\n", sum);
  return body + digits;
}

void DAQMBus::HandleRead() {
  _input += _pty.Read();
  if (!_power) _input.clear();
  for (size_t end; (end = _input.find('\n')) != _input.npos; _input.erase(0, end + 1)) {
    const std::string line = _input.substr(0, end + 1);
    if (line == "\n") continue;
    const std::string body = line.substr(0, line.size() - std::min(line.size(), kTail));
    if (body.starts_with("{\"") && Framed(body) == line) _Obey(body);
  }
  _Flush();
}

void DAQMBus::_Obey(const std::string& body) {
  if (_commands.size() < kMostCommands) _commands.push_back(body);
  const size_t end = body.find('"', 2);
  const std::string to = body.substr(2, end - 2), order = body.substr(end + 1);
  if (to == "drm") return _ObeyDRM(order);
  if (order.find("livedata") != order.npos) _live = NumberBehind(order, "\"livedata\":") != 0;
  for (size_t i = 0; i < _modules.size(); ++i)
    if (to == "all" || to == _Name(i)) _ObeyModule(i, order);
  if (to == "all" && order == ":\"identify\"}") Say("{\"drm\":\"identify\"}");
}

void DAQMBus::_ObeyModule(size_t number, const std::string& order) {
  Module& module = _modules[number];
  const std::string head = "{\"" + _Name(number) + "\":";
  const time_t clock = time(nullptr) + module.ahead;
  if (order == ":\"identify\"}") Say(head + "\"identify\"}");
  if (order == ":\"querytime\"}")
    Say(head + "{\"time\":{\"sec\":" + std::to_string(clock) +
        ",\"offset\":" + std::to_string(LocalTime(clock).tm_gmtoff) + "}}}");
  if (order == ":\"queryserial\"}") Say(head + "{\"serial\":\"DA-" + std::to_string(100 + number) + "\"}}");
  if (order == ":\"queryswversion\"}") Say(head + "{\"swversion\":\"2." + std::to_string(number / 3) + "\"}}");
  if (order == ":\"querydatainfo\"}") {
    module.known = true;
    module.since_question = 0;
    _SayDataInfo(number);
  }
  if (order == ":\"storeconfig\"}") {
    module.known = false;
    _Unsettle(static_cast<int>(number));
    Say(head + "\"stored\"}");
  }
  if (order.find("\"rename\":") != order.npos) {
    module.revision = static_cast<int>(NumberBehind(order, "\"rename\":"));
    Say(head + "{\"renamed\":" + std::to_string(module.revision) + "}}");
  }
  if (order.starts_with(":{\"time\":"))
    module.ahead = static_cast<int>(NumberBehind(order, "\"sec\":") - time(nullptr));
}

void DAQMBus::_ObeyDRM(const std::string& order) {
  if (order == ":\"queryvoltage\"}")
    Say("{\"drm\":{\"queryvoltageresponse\":{\"Vbat\":[12.625,1],\"Vsolar\":[17.5,1],\"Vaux\":[5.25," +
        std::string(_aux ? "1" : "0") + "],\"Status\":[3,1]}}}");
  if (order != ":\"heathlinkready\"}") return;
  Say("{\"drm\":{\"heathlinkreadyresponse\":1}}");
  if (!std::exchange(_ready, true)) Say("{\"drm\":{\"backupqueryvoltageresponse\":{\"Vbat\":[12.5,1]}}}");
}

// What waits at the other side to be collected may be lost when the columns are asked for anew.
void DAQMBus::_Unsettle(int number) {
  for (auto report = _reports.rbegin(); report != _reports.rend(); ++report)
    if (report->module == number && !report->kept) {
      report->settled = false;
      return;
    }
}

// In two fragments.
void DAQMBus::_SayDataInfo(size_t number) {
  const std::string ending = _modules[number].revision == 0 ? "" : "-" + std::to_string(_modules[number].revision);
  const auto column = [&](int which) {
    return "{\"" + std::to_string(which) + "\":[\"" + NameOf(static_cast<int>(number), which) + ending + "\",\"u" +
           std::to_string(which) + "\"]}";
  };
  const std::string head = "{\"" + _Name(number) + "\":{\"datainfo\":[0,";
  Say(head + "1," + column(1) + "]}}");
  Say(head + "0," + column(2) + "," + column(3) + "]}}");
}

std::string DAQMBus::_Values(size_t number, long time, bool missing) const {
  std::string text = "[0," + std::to_string(time);
  for (int column = 1; column <= kColumns; ++column) {
    char value[40];
    std::snprintf(value, sizeof value, "%.1f", ValueOf(static_cast<int>(number), column, time));
    text += ",{\"" + std::to_string(column) + "\":" + (missing ? "nan" : value) + "}";
  }
  return text + "]}}";
}

void DAQMBus::_SayKept() {
  for (int moment = 0; moment < kKeptAtOnce && _kept_left > 0; ++moment, --_kept_left) {
    for (int i = 0; i < _settings.modules; ++i) {
      _in_output.push_back(_reports.size());
      _reports.push_back({true, i, _kept_from, false, true, _modules[static_cast<size_t>(i)].known});
      const auto number = static_cast<size_t>(i);
      Say("{\"" + _Name(number) + "\":{\"backupdata\":" + _Values(number, _kept_from, false));
    }
    _kept_from += _settings.interval;
  }
}

void DAQMBus::_SayReport(size_t number, long now) {
  Module& module = _modules[number];
  const long clock = now + module.ahead;
  const std::string head = "{\"" + _Name(number) + "\":{\"";
  if (_live) Say(head + "livedata\":" + _Values(number, clock, false));
  if (!_ready || _kept_left > 0 || now % _settings.interval != 0 || module.silent > 0) return;
  const bool missing = std::exchange(module.missing, false), bad_sum = std::exchange(module.bad_sum, false);
  std::string line = Framed(head + "data\":" + _Values(number, clock, missing));
  if (bad_sum) line[line.size() - 2] = line[line.size() - 2] == '0' ? '1' : '0';
  const bool late = module.late > 0;
  if (!late) _in_output.push_back(_reports.size());
  _reports.push_back(
      {false, static_cast<int>(number), clock, missing, !bad_sum, module.known && module.since_question >= kSettled});
  if (!late)
    _output += line;
  else
    module.held[now + 2L * _settings.interval] = {line, _reports.size() - 1};
}

void DAQMBus::SetPower(bool on) {
  _power = on;
  if (on) return;
  _output.clear();
  _rest.clear();
  _in_output.clear();
  _spoiled = true;
  const size_t lost = std::min(_reports.size(), 3 * _modules.size());
  for (auto report = _reports.end() - static_cast<long>(lost); report != _reports.end(); ++report) report->good = false;
}

void DAQMBus::HandleTimeout() {
  AddTimeout(kSecond);
  if (!_power) return;
  const long now = time(nullptr);
  if (_ready) _SayKept();
  for (size_t i = 0; i < _modules.size(); ++i) {
    Module& module = _modules[i];
    for (auto held = module.held.begin(); held != module.held.end() && held->first <= now;) {
      _output += held->second.first;
      _in_output.push_back(held->second.second);
      held = module.held.erase(held);
    }
    _SayReport(i, now);
    ++module.since_question;
    module.silent -= module.silent > 0 ? 1 : 0;
    module.late -= module.late > 0 ? 1 : 0;
  }
  _Flush();
}

void DAQMBus::Forget() {
  _commands.clear();
  size_t owed = _in_output.size();
  for (const Module& module : _modules) owed += module.held.size();
  if (owed == 0) _reports.clear();
}

// A line that is cut off for good spoils the one behind it, whichever that is.
void DAQMBus::_Flush() {
  std::string bytes = std::exchange(_rest, {}) + std::exchange(_output, {});
  std::vector<size_t> reports = std::exchange(_in_output, {});
  if (bytes.empty()) return;
  const auto spoil = [&] {
    for (const size_t report : reports) _reports[report].good = false;
  };
  if (std::exchange(_spoiled, false)) spoil();
  const int cut = std::exchange(_cut, 0);
  if (cut == 1) {
    _rest = bytes.substr(bytes.size() / 2);
    _in_output = reports;
  } else if (cut == 2) {
    spoil();
    _spoiled = true;
  }
  if (cut != 0) bytes.resize(bytes.size() / 2);
  _pty.Write(bytes);
}

void DAQMBus::Misbehave(int which, int number) {
  Module& module = _modules[static_cast<size_t>(number) % _modules.size()];
  switch (static_cast<Misbehaviour>(which)) {
    case kLate:
      module.late = kLateness;
      break;
    case kSilent:
      module.silent = kSilence;
      break;
    case kRenamed:
      ++module.revision;
      _SayDataInfo(static_cast<size_t>(number) % _modules.size());
      break;
    case kBadSum:
      module.bad_sum = true;
      break;
    case kMissing:
      module.missing = true;
      break;
    case kHalfLine:
    case kLostHalf:
      _cut = which == kHalfLine ? 1 : 2;
      break;
    case kWrongClock:
      module.ahead = 4;
      break;
    case kNewModule:
      if (_modules.size() == static_cast<size_t>(_settings.modules)) _modules.emplace_back();
      break;
    case kNoise:
      SayAsIs("\x01\xfe noise\r\n");
      break;
    case kVoltageGone:
      _aux = !_aux;
      break;
    case kPowerOff:
      Say("{\"drm\":\"heathlinkpoweroff\"}");
      break;
    case kMisbehaviours:
      break;
  }
}
