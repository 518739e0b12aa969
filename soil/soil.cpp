#include "soil/soil.h"

#include <jsoncpp/json/value.h>

#include <algorithm>
#include <iostream>
#include <limits>
#include <locale>
#include <sstream>
#include <utility>

#include "json/statefile.h"
#include "net/net_util.h"
#include "runtime/localtime.h"

namespace {

// Milliseconds.
constexpr int kNever = -1;
constexpr int kFirstPoll = 30'000;
constexpr int kPoll = 600'000;
constexpr int kStopping = 15'000;
constexpr int kHoldoff = 600'000;

constexpr int64_t kMostRequests = 10'000;

constexpr const char* kQueryState = "<SR><CMD><QUERY>STATE</QUERY></CMD></SR>\n";
constexpr const char* kListFiles = "<SR><CMD><MEAS><LIST>1:*</LIST></MEAS></CMD></SR>\n";
constexpr const char* kQueryMeasurement = "<SR><CMD><QUERY>MEAS</QUERY></CMD></SR>\n";
constexpr const char* kStop = "<SR><CMD><MEAS>STOP</MEAS></CMD></SR>\n";
constexpr const char* kStart = "<SR><CMD><MEAS>START</MEAS></CMD></SR>\n";

// An empty text is found nowhere.
bool Contains(const std::string& text, const std::string& part) {
  return !part.empty() && text.find(part) != std::string::npos;
}

std::string StringOf(const SoilData& data, const char* path) {
  const auto found = data.strings.find(path);
  return found == data.strings.end() ? std::string() : found->second;
}

int LongOf(const SoilData& data, const char* path) {
  const auto found = data.longs.find(path);
  return found == data.longs.end() ? 0 : static_cast<int>(found->second);
}

std::string Formatted(const tm& moment, const char* format) {
  char text[32];
  return {text, strftime(text, sizeof text, format, &moment)};
}

std::set<std::string> NamesOf(const std::vector<SoilDevice::FileInfo>& files) {
  std::set<std::string> names;
  for (const auto& file : files) names.insert(file.name);
  return names;
}

// A line of the report without its end, which may be a carriage return and a line feed.
bool ReadLine(std::istream& in, std::string& line) {
  if (!std::getline(in, line)) return false;
  if (line.ends_with('\r')) line.pop_back();
  return true;
}

int Less(int value, int by) {
  return std::max(value, std::numeric_limits<int>::min() + by) - by;
}

}  // namespace

void Soil::Listener::GotSoilConnected(std::string) {}
void Soil::Listener::GotSoilData(SoilData&) {}
void Soil::Listener::GotSoilReport(long, std::string) {}
void Soil::Listener::GotSoilError(std::string) {}

Soil::Soil(bool trace, bool verbose)
    : PollTimer(kNever, true), _device(trace || verbose), _hostName(Hostname()), _trace(trace) {
  _device.RegisterListener(this);
}

Soil::Listener* Soil::RegisterListener(Listener* listener) {
  return std::exchange(_listener, listener);
}

void Soil::Connect(const std::string& target) {
  SetTarget(target);
  _device.GetHead().Connect(target);
}

void Soil::_HoldoffTimer::HandleTimeout() {
  if (!_soil._target.empty()) _soil._device.GetHead().Connect(_soil._target);
}

void Soil::_Send(const std::string& command) {
  if (_device.IsVerbose()) std::cout << "Soil Tx: " << command << '\n';
  _device.GetHead().Send(command);
}

void Soil::_QueryMeasurement() {
  _Send(kListFiles);
  _Send(kQueryMeasurement);
}

// The timers come before the listener, which may end the connection and with it the polling.
void Soil::GotSoilConnected(std::string connectedTo) {
  _Send(kQueryState);
  _QueryMeasurement();
  SetTimeout(kFirstPoll);
  _holdoff.SetTimeout(kNever);
  if (_listener != nullptr) _listener->GotSoilConnected(std::move(connectedTo));
}

// A sequence that was begun stays begun: the first step of the next connection carries it out.
void Soil::GotSoilClosed() {
  SetTimeout(kNever);
}

void Soil::HandleTimeout() {
  const time_t now = time(nullptr);
  const tm local = LocalTime(now);
  if (!_syncPending && _lastPoll > 0 && LocalTime(_lastPoll).tm_mday != local.tm_mday) {
    _TriggerDailySync();
    return;
  }
  if (_syncPending) {
    _DailySync(Formatted(local, "%Y%m%d"), Formatted(local, "%H%M%S"));
    _syncPending = false;
  }
  _lastPoll = now;
  _Send(kQueryState);
  AddTimeout(kPoll);
}

void Soil::_TriggerDailySync() {
  _Send(kStop);
  _syncPending = true;
  SetTimeout(kStopping);
}

void Soil::_DailySync(const std::string& date, const std::string& time) {
  _Send("<SR><CFG><IPOUTRATE>1</IPOUTRATE></CFG></SR>\n");
  _Send("<SR><CFG><CLOCK><DATE>" + date + "</DATE></CLOCK></CFG></SR>\n");
  _Send("<SR><CFG><CLOCK><TIME>" + time + "</TIME></CLOCK></CFG></SR>\n");
  _Send("<SR><MEASUREMENT><TYPE>CHAMBER</TYPE></MEASUREMENT></SR>\n");
  _Send("<SR><MEASUREMENT><SPLIT>WEEK</SPLIT></MEASUREMENT></SR>\n");
  _Send("<SR><MEASUREMENT><LOCATION>INT</LOCATION></MEASUREMENT></SR>\n");
  _Send("<SR><MEASUREMENT><FILE>APPEND</FILE></MEASUREMENT></SR>\n");
  _Send("<SR><MEASUREMENT><NAME>" + _hostName + "</NAME></MEASUREMENT></SR>\n");
  _Send("<SR><CFG><MEASRESTART>TRUE</MEASRESTART></CFG></SR>\n");
  _Send("<SR><CFG><CONTINUE>TRUE</CONTINUE></CFG></SR>\n");
  _CopyAndDeleteOldFiles();
  _Send(kStart);
}

// The newest file is copied and kept; the older ones go, and so does what is remembered of them.
void Soil::_CopyAndDeleteOldFiles() {
  std::set<std::string> ours;
  for (const std::string& name : _intFiles)
    if (Contains(name, _hostName)) ours.insert(name);
  if (ours.empty()) return;
  const auto newest = std::prev(ours.end());
  _Send("<SR><CMD><COPY>" + *newest + "</COPY></CMD></SR>\n");
  ours.erase(newest);
  if (ours.empty()) return;
  Json::Value conf = ReadStateFile(_ConfPath());
  for (const std::string& name : ours) {
    _Send("<SR><CMD><MEAS><DELETE>" + name + "</DELETE></MEAS></CMD></SR>\n");
    conf.removeMember(name.data(), name.data() + name.size(), nullptr);  // the form for a string ends at a NUL
    _intFiles.erase(name);
  }
  _SaveConf(conf);
}

void Soil::GotSoilStatus(SoilData& data) {
  _curOb = LongOf(data, "/SR/STATE/CUROB");
  _obComplete = LongOf(data, "/SR/STATE/OBCOMPLETE");
  if (!_syncPending && StringOf(data, "/SR/STATE/INSTRUMENT") == "IDLE") _Send(kStart);
}

void Soil::GotSoilInfo(SoilData& data) {
  if (StringOf(data, "/SR/INFO") != "SUMMARY_READY") return;
  _obComplete = 100;
  _QueryMeasurement();
}

void Soil::GotSoilMeasurement(SoilData& data) {
  const std::string name = StringOf(data, "/SR/MEASUREMENT/NAME");
  if (name != _hostName) {
    _TriggerDailySync();
    return;
  }
  const std::string location = StringOf(data, "/SR/MEASUREMENT/LOCATION");
  const std::string file = _FileOf(name, location);
  // Wider than the numbers are: both ends of their range may come off the wire and out of the file.
  const int64_t last = _obComplete < 100 ? int64_t{_curOb} - 1 : _curOb;
  const int64_t next = int64_t{_LoadObs(file)} + 1;
  if (next > last) return;
  for (int64_t observation = std::max(next, last - kMostRequests + 1); observation <= last; ++observation) {
    const std::string request = "<SR><REPORT><LOC>" + location + "</LOC><INFILE>" + file + "</INFILE><OB>" +
                                std::to_string(observation) +
                                "</OB><INCHEADER>TRUE</INCHEADER><INC234>TRUE</INC234><ACTION>GETOB</ACTION>"
                                "</REPORT></SR>";
    _Send(request + '\n');
    if (_trace) std::cout << request << '\n';
  }
  _SaveObs(file, static_cast<int32_t>(last));
}

// The newest of the measurement's data files; without one the name itself.
std::string Soil::_FileOf(const std::string& name, const std::string& location) const {
  const std::set<std::string>& files = location == "EXT" ? _extFiles : _intFiles;
  const auto found = std::find_if(files.rbegin(), files.rend(), [&name](const std::string& file) {
    return Contains(file, name) && Contains(file, ".47q");
  });
  return found == files.rend() ? name : *found;
}

void Soil::GotSoilIntFileList(const std::vector<SoilDevice::FileInfo>& files) {
  _intFiles = NamesOf(files);
}

void Soil::GotSoilExtFileList(const std::vector<SoilDevice::FileInfo>& files) {
  _extFiles = NamesOf(files);
}

void Soil::GotSoilReport(std::string report) {
  if (_listener == nullptr) return;
  const long timestamp = _ExtractReportTimestamp(report);
  _listener->GotSoilReport(timestamp, std::move(report));
}

void Soil::GotSoilError(std::string error) {
  if (Contains(error, "Interruption")) {
    _device.GetHead().Disconnect();
    _holdoff.SetTimeout(kHoldoff);
  }
  if (_listener != nullptr) _listener->GotSoilError(std::move(error));
}

void Soil::GotSoilData(SoilData& data) {
  if (_listener != nullptr) _listener->GotSoilData(data);
}

// From the column "Date" of the first line behind the headings, which begin with "Type": a date and a time with any
// character between their numbers, as 2024-05-01 12:30:00.
long Soil::_ExtractReportTimestamp(const std::string& report) {
  std::istringstream lines(report);
  std::string line;
  do {
    if (!ReadLine(lines, line)) return 0;
  } while (!line.starts_with("Type"));
  int column = 1;
  std::istringstream headings(line);
  for (std::string heading; std::getline(headings, heading, '\t') && heading != "Date";) ++column;

  if (!ReadLine(lines, line)) return 0;
  std::istringstream fields(line);
  std::string field;
  for (; column > 0; --column)
    if (!std::getline(fields, field, '\t')) return 0;

  std::istringstream date(field);
  date.imbue(std::locale::classic());
  tm when{};
  char separator = 0;
  date >> when.tm_year >> separator >> when.tm_mon >> separator >> when.tm_mday;
  date >> when.tm_hour >> separator >> when.tm_min >> separator >> when.tm_sec;
  if (date.fail()) return 0;
  when.tm_year = Less(when.tm_year, 1900);
  when.tm_mon = Less(when.tm_mon, 1);
  when.tm_isdst = -1;
  return static_cast<long>(mktime(&when));
}

void Soil::_SaveConf(const Json::Value& conf) const {
  try {
    WriteStateFile(_ConfPath(), conf);
  } catch (const std::exception&) {
    std::cout << "Soil: Unable to write conf file" << std::endl;
  }
}

int32_t Soil::_LoadObs(const std::string& file) const {
  const Json::Value conf = ReadStateFile(_ConfPath());
  const Json::Value& member = conf[file];
  if (!member.isObject() || !member["obs"].isInt()) return 0;
  return member["obs"].asInt();
}

void Soil::_SaveObs(const std::string& file, int32_t observation) const {
  Json::Value conf = ReadStateFile(_ConfPath());
  conf[file] = Json::objectValue;
  conf[file]["obs"] = observation;
  _SaveConf(conf);
}
