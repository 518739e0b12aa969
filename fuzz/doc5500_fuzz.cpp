// Any bytes into the analyser's document: what its listener is told is what a plain table says of the marks; then every
// value lies within what its description says, or is no number, and what the tree writes of itself is a document that
// gives the same tree.
//
// Input: documents with a form feed between two of them. Before each one the marks are cleared, unless it begins with
// a plus.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "config/doc5500.h"
#include "fuzz/doc5500_recorder.h"
#include "net/socketaddress.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> pieces;
  std::istringstream in(text);
  for (std::string piece; std::getline(in, piece, separator);) pieces.push_back(piece);
  return pieces;
}

using Value = std::ostream& (Configurable::*)(std::ostream&) const;

std::string Text(const Configurable& item, Value value = &Configurable::write) {
  std::ostringstream out;
  (item.*value)(out);
  return out.str();
}

std::string Kind(const Configurable& item) {
  return Text(item, &Configurable::write_doctype);
}

// By its tags, with "/" between them, below tarno/tn5500.
const Configurable& Item(const Doc5500& document, const std::string& path) {
  const Configurable* item = &document.tn5500;
  for (const std::string& tag : Split(path, '/')) item = dynamic_cast<const ConfigurableComposite*>(item)->lookup(tag);
  return *item;
}

bool IsMarked(const Doc5500& document, const std::string& path) {
  return Item(document, path).has_changed();
}

// What is told

// In this order: the section or item that has changed, what is told, and the items whose values go with it. "!": the
// static configuration has changed, too. "?": told only of a command that is true.
constexpr const char* kSteps[][3] = {
    {"cal", "GotCalChanged", ""},
    {"box", "!", ""},
    {"output/rate", "!GotOutputRate", "output/rate"},
    {"cfg/temprange", "!GotTempRange", "#cfg/temprange"},
    {"cfg/heater", "!", ""},
    {"cfg/heater/bottom", "GotBottomHeaterConfig",
     "cfg/heater/bottom/heaterpower #cfg/heater/bottom/control cfg/heater/bottom/signalstrengthlevel "
     "cfg/heater/bottom/ontime cfg/heater/bottom/offtime"},
    {"cfg/heater/top", "GotTopHeaterConfig",
     "cfg/heater/top/heaterpower #cfg/heater/top/control cfg/heater/top/deltat cfg/heater/top/ontime "
     "cfg/heater/top/offtime"},
    {"cfg/spinmirror", "!GotSpinMotorConfig",
     "#cfg/spinmirror/control cfg/spinmirror/signalstrengthlevel cfg/spinmirror/ontime cfg/spinmirror/offtime "
     "cfg/spinmirror/duration cfg/spinmirror/repeatinterval"},
    {"cfg/linelock", "GotLineLockConfig",
     "#cfg/linelock/lasercooler/control cfg/linelock/lasercooler/temp cfg/linelock/lasercooler/daccount "
     "#cfg/linelock/laserblock/control cfg/linelock/laserblock/temp cfg/linelock/laserblock/daccount"},
    {"cfg/clock/date cfg/clock/time", "GotClockSetting", "@"},
    {"cfg/clock/zone", "GotTimezoneSetting", "cfg/clock/zone"},
    {"cfg/clock/ptp", "GotPTPSetting", "#cfg/clock/ptp"},
    {"cfg/network", "GotNetworkSetting",
     "cfg/network/name =cfg/network/configuration cfg/network/ipaddress cfg/network/netmask cfg/network/gateway"},
    {"cfg/aux1", "!GotAuxConfig 1", "#cfg/aux1/type cfg/aux1/a0 cfg/aux1/a1 cfg/aux1/a2 cfg/aux1/a3"},
    {"cfg/aux2", "!GotAuxConfig 2", "#cfg/aux2/type cfg/aux2/a0 cfg/aux2/a1 cfg/aux2/a2 cfg/aux2/a3"},
    {"cfg/aux3", "!GotAuxConfig 3", "#cfg/aux3/type cfg/aux3/a0 cfg/aux3/a1 cfg/aux3/a2 cfg/aux3/a3"},
    {"cfg/aux4", "!GotAuxConfig 4", "#cfg/aux4/type cfg/aux4/a0 cfg/aux4/a1 cfg/aux4/a2 cfg/aux4/a3"},
    {"cfg/aux5", "!GotAuxConfig 5", "#cfg/aux5/type cfg/aux5/a0 cfg/aux5/a1 cfg/aux5/a2 cfg/aux5/a3"},
    {"cfg/aux6", "!GotAuxConfig 6", "#cfg/aux6/type cfg/aux6/a0 cfg/aux6/a1 cfg/aux6/a2 cfg/aux6/a3"},
    {"cfg/aux7", "!GotAuxConfig 7", "#cfg/aux7/type cfg/aux7/a0 cfg/aux7/a1 cfg/aux7/a2 cfg/aux7/a3"},
    {"cfg/aux8", "!GotAuxConfig 8", "#cfg/aux8/type cfg/aux8/a0 cfg/aux8/a1 cfg/aux8/a2 cfg/aux8/a3"},
    {"cfg/dac1 cfg/dac2 cfg/dac3 cfg/dac4 cfg/dac5 cfg/dac6", "!", ""},
    {"factory/cmd", "?GotFactoryCommitCmd", "factory/cmd/commit"},
    {"factory/cmd", "?GotFactoryRollbackCmd", "factory/cmd/rollback"},
    {"factory", "GotFactoryChanged", ""},
    {"", "StaticConfigChanged", ""},
    {"cmd", "?GotLineLockCmd", "cmd/linelock"},
    {"cmd", "?GotPollCmd", "cmd/poll"},
    {"cmd", "?GotPollTestCmd", "cmd/polltest"},
    {"cmd", "?GotCalCH4ZeroCmd", "cmd/ch4zero"},
    {"cmd", "?GotCalCH4SpanCmd", "cmd/ch4span cal/ch4spanconc"},
    {"cmd", "?GotCalCommitCmd", "cmd/calcommit"},
    {"cmd", "?GotCalRollbackCmd", "cmd/calrollback"},
    {"cmd", "?GotCalAbortCmd", "cmd/calabort"},
    {"cmd", "?GotLogUSBStartCmd", "cmd/logusbstart"},
    {"cmd", "?GotLogUSBStopCmd", "cmd/logusbstop"},
    {"cmd", "?GotRebootCmd", "cmd/reboot"},
};

std::string IndexOf(const Configurable& choice) {
  int index = 0;
  for (const std::string& text : Split(Kind(choice), '|')) {
    if (text == Text(choice)) return std::to_string(index);
    ++index;
  }
  return "none";
}

// "#": by its index; "=": whether that is 0; "@": the clock as a count. Times of day are in seconds.
std::string Argument(const Doc5500& document, const std::string& path) {
  if (path == "@") return std::to_string(document.tn5500.cfg.clock.TimeDate());
  if (path[0] == '#') return IndexOf(Item(document, path.substr(1)));
  if (path[0] == '=') return IndexOf(Item(document, path.substr(1))) == "0" ? "1" : "0";
  const Configurable& item = Item(document, path);
  const auto* const time = dynamic_cast<const ConfigurableTimestamp*>(&item);
  if (time == nullptr) return Text(item);
  const double seconds = time->get().get();
  return seconds >= 2147483647.0    ? "2147483647"
         : seconds <= -2147483648.0 ? "-2147483648"
                                    : std::to_string(int(seconds));
}

// A clock without a date ends it.
std::string Expected(const Doc5500& document) {
  std::string told;
  bool is_static = false;
  for (const auto& [changed, what, values] : kSteps) {
    std::string operation = what;
    bool marked = operation == "StaticConfigChanged" && is_static;
    for (const std::string& path : Split(changed, ' ')) marked = marked || IsMarked(document, path);
    if (!marked) continue;
    std::vector<std::string> paths = Split(values, ' ');
    if (operation[0] == '?') {
      if (Text(Item(document, paths[0])) != "true") continue;
      paths.erase(paths.begin());
    }
    if (operation[0] == '!') is_static = true;
    if (operation[0] == '!' || operation[0] == '?') operation.erase(0, 1);
    if (operation.empty()) continue;
    try {
      for (const std::string& path : paths) operation += ' ' + Argument(document, path);
    } catch (const std::runtime_error&) {
      return told + "ended\n";
    }
    told += operation + '\n';
  }
  return told;
}

bool ConfigIsMarked(const Doc5500& document) {
  for (const char* path : {"output", "box", "cfg", "cal", "factory", "ver", "name", "serialnumber", "ipaddress"})
    if (IsMarked(document, path)) return document.tn5500.has_changed();
  return false;
}

// A bad address leaves by an exception, and nothing is told.
void Configure(Doc5500& document, Doc5500Recorder& recorder, const std::string& text) {
  std::istringstream in(text);
  std::ostringstream answers;
  recorder.log.str("");
  try {
    document.configure_and_send_events(in, answers);
  } catch (const SocketError&) {
    Require(in.fail() && recorder.log.str().empty());
    return;
  } catch (const std::runtime_error&) {
    recorder.log << "ended\n";
  }
  Require(recorder.log.str() == Expected(document));
  Require(document.tn5500.IsConfigChanged() == ConfigIsMarked(document));
}

// What the tree holds

// "integer:" and "float:" with the default; ";" and the bounds with "..." between them; or choices.
void RequireWithin(const Configurable& item) {
  const std::string kind = Kind(item), text = Text(item);
  const size_t bounds = kind.find(';');
  if (bounds != std::string::npos) {
    const double low = std::stod(kind.substr(bounds + 1)), high = std::stod(kind.substr(kind.find("...") + 3));
    const double value = std::stod(text);
    Require(std::isnan(value) || (low <= value && value <= high));
  } else if (kind.find('|') != std::string::npos) {
    Require(IndexOf(item) != "none");
  }
}

// The text layer has no form for these: blanks at the ends, a NUL, what reads as an entity, and a text in braces.
bool TextSurvives(const std::string& text) {
  if (text.empty()) return true;
  const auto is_space = [](unsigned char c) { return std::isspace(c) != 0; };
  return !is_space(text.front()) && !is_space(text.back()) && text.find('&') == std::string::npos &&
         !(text.size() > 1 && text.front() == '{' && text.back() == '}');
}

// Neither have seconds that six digits round up to 60, and times before 1989 or beyond the unsigned count.
bool TimeSurvives(const Timestamp& time) {
  return time.get() >= 0 && time.get() < 4294967295.0 && time.sec() < 59.9999;
}

// An empty text isn't written at all, so that the other tree's default has to be empty as well.
void RequireSame(const Configurable& one, const Configurable& other) {
  const auto* const section = dynamic_cast<const ConfigurableComposite*>(&one);
  if (section != nullptr) {
    auto second = dynamic_cast<const ConfigurableComposite&>(other).children().begin();
    for (const Configurable* child : section->children()) RequireSame(*child, **second++);
    Require(second == dynamic_cast<const ConfigurableComposite&>(other).children().end());
    return;
  }
  RequireWithin(one);
  if (!one.is_enabled()) return;
  const std::string text = Text(one);
  const auto* const time = dynamic_cast<const ConfigurableTimestamp*>(&one);
  const bool survives = time != nullptr ? TimeSurvives(time->get()) : TextSurvives(text);
  if (survives && !text.empty()) Require(Text(other) == text);
}

void RequireReadable(const Doc5500& document) {
  Doc5500 again;
  std::stringstream own, replies;
  document.configuration(own);
  again.configure(own, replies);
  RequireSame(document, again);
}

// Choices that stand for numbers, and the columns

// Time and sum can't be turned off, and date and time are looked at also where the document doesn't have them.
void RequireColumns(ConfigBoxData& data) {
  data.date.set(!data.date.get());
  std::set<std::string> names = {"old"}, expected;
  data.GetTrueSet(names);
  for (const Configurable* column : data.children()) {
    std::string name;
    for (const char c : column->get_name()) name += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    if (Text(*column) == "true") expected.insert(name);
  }
  if (data.date.get()) expected.insert("DATE");
  if (data.time.get()) expected.insert("TIME");
  Require(names == expected);
  for (const char* name : {"SECONDS", "NANOSECONDS", "CHK"}) Require(names.count(name) == 1);
}

void RequireMeanings(Config5500& tn5500) {
  Require(tn5500.output.get_rate() == std::stoi(Text(tn5500.output.rate)));
  Require(tn5500.box.usb.split.get_seconds() == std::stoi(Text(tn5500.box.usb.split)) * 60);
  RequireColumns(tn5500.box.output.data);
  RequireColumns(tn5500.box.usb.data);
}

// The calibrations in force

struct Record {
  std::string tag, type;
  double time;
  float zero, span;
  bool operator==(const Record& other) const = default;
};

std::vector<Record> Records(const ConfigCalHistory& history) {
  std::vector<Record> records;
  for (const Configurable* child : history.children()) {
    const auto& record = dynamic_cast<const ConfigCalRecord&>(*child);
    records.push_back(
        {record.get_name(), record.type.get(), record.time.get().get(), record.ch4zero.get(), record.ch4span.get()});
  }
  return records;
}

// The last record of each kind and time, the span in front. One that is a zero in force isn't looked at as a span.
void RequireTrims(ConfigCal& cal) {
  std::vector<Record> zeros, spans;
  for (const Record& record : Records(cal.history)) {
    const auto is = [&record](const char* kind, const Timestamp& when) {
      return record.type.find(kind) != std::string::npos && record.time == when.get();
    };
    if (is("CH4 Zero", cal.ch4lastzero.get()))
      zeros = {record};
    else if (is("CH4 Span", cal.ch4lastspan.get()))
      spans = {record};
  }
  spans.insert(spans.end(), zeros.begin(), zeros.end());
  const bool was_empty = cal.history.children().empty();
  cal._set_changed(false);
  cal.ClearOldHistoryRecords();
  for (const Record& record : spans)
    if (std::isnan(record.zero) || std::isnan(record.span)) return;  // equal to nothing
  Require(Records(cal.history) == spans);
  Require(cal.has_changed() == !was_empty);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  setenv("TZ", "UTC0", 1);
  const std::string text(reinterpret_cast<const char*>(data), size);
  Doc5500 document;
  Doc5500Recorder recorder;
  document.RegisterListener(&recorder);
  // The list of zones is that of the process: each input starts with the same one.
  Configure(document, recorder, "<tarno><tn5500><cfg><clock><zone>{UTC}</zone></clock></cfg></tn5500></tarno>");
  for (const std::string& one : Split(text, '\f')) {
    const bool keeps = one.starts_with('+');
    if (!keeps) document._set_changed(false);
    Configure(document, recorder, one.substr(keeps ? 1 : 0));
  }
  RequireReadable(document);
  RequireTrims(document.tn5500.cal);
  RequireMeanings(document.tn5500);
  return 0;
}
