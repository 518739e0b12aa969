// Lines of the soil instrument against a plain second reading of them: each callback, each field and each escape. The
// bytes of a report also against a second reading of its time, and as the observation file, which has to hold the last
// request afterwards whatever it held before.
//
// Input: a byte of choice, and the bytes.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <locale>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "config/xml_parser.h"
#include "json/statefile.h"
#include "net/net_util.h"
#include "soil/soil.h"
#include "soil/soildevice.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

struct Log : SoilDevice::Listener, Soil::Listener {
  using SoilDevice::Listener::GotSoilReport;
  void Note(const char* event, const SoilData& data) {
    std::ostringstream plain, printed;
    plain.imbue(std::locale::classic());
    printed.imbue(std::locale::classic());
    plain << "TIME=" << data.time;
    for (const auto& [path, value] : data.floats) plain << ' ' << path << '=' << value;
    for (const auto& [path, value] : data.longs) plain << ' ' << path << '=' << value;
    for (const auto& [path, value] : data.strings) plain << ' ' << path << '=' << value;
    printed << data;
    REQUIRE(printed.str() == plain.str());
    text << event << ' ' << plain.str() << '\n';
    for (const auto& [path, value] : data.floats) text << std::hexfloat << value << std::defaultfloat << ' ';
  }
  void GotSoilOpened() override { text << "opened\n"; }
  void GotSoilConnected(std::string target) override { text << "connected " << target << '\n'; }
  void GotSoilClosed() override { text << "closed\n"; }
  // The record is the listener's while it lasts: what it leaves there isn't told again.
  void GotSoilData(SoilData& data) override {
    Note("data", data);
    data.floats.erase("/SR/DATA/CO2");
    data.floats["/SR/DATA/FLUX"] = data.floats["/SR/DATA/GUST"] = 5;
    data.longs["/SR"] = data.longs["/SR/T"] = 6;
    data.strings["/SR/DATA/LABEL"] = "old";
  }
  void GotSoilInfo(SoilData& data) override { Note("info", data); }
  void GotSoilStatus(SoilData& data) override { Note("state", data); }
  void GotSoilMeasurement(SoilData& data) override { Note("measurement", data); }
  void GotSoilIntFileList(const std::vector<SoilDevice::FileInfo>& files) override { Note("internal", files); }
  void GotSoilExtFileList(const std::vector<SoilDevice::FileInfo>& files) override { Note("external", files); }
  void Note(const char* event, const std::vector<SoilDevice::FileInfo>& files) {
    text << event << '\n';
    for (const auto& file : files) text << file.name << '|' << file.size << '\n';
  }
  void GotSoilReport(std::string report) override { text << "report " << report << '\n'; }
  void GotSoilReport(long timestamp, std::string report) override { text << timestamp << ' ' << report << '\n'; }
  void GotSoilError(std::string error) override { text << "error " << error << '\n'; }
  std::ostringstream text;
};

// A process in a place where numbers have a comma and come in groups: none of it may reach the instrument's.
class Elsewhere {
 public:
  Elsewhere() : _before(std::locale::global(std::locale(std::locale::classic(), new Numbers))) {}
  Elsewhere(const Elsewhere&) = delete;
  Elsewhere& operator=(const Elsewhere&) = delete;
  ~Elsewhere() { std::locale::global(_before); }

 private:
  struct Numbers : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
  };
  const std::locale _before;
};

const char* const kFloats =
    " BENCHPRESSURE BENCHTEMP BOARDTEMP CHAMBERTEMP CO2 CO2ABS COURSE CPRIME FLUX H2O H2OABS LATITUDE LONGITUDE RH "
    "SPEED "
    "STATUS T1 T2 T3 T4 V1 V2 V3 V4 VIN ";
const char* const kDataLongs = " RAWCO2 RAWCO2REF RAWH2O RAWH2OREF ";
const char* const kStateLongs = " CHAMBER/PORT CUROB GAS NEXTOB OBCOMPLETE PURGING TOTALOB V2 V3 V4 ";
const char* const kRecords[] = {"INFO", "MEASUREMENT", "STATE", "LIST", "CFLIST", "DATA", "REPORT", "ERROR"};

// 1 float, 2 long, 3 time, 4 nothing, from 5 on the records; 0 for others.
int Kind(const std::string& path) {
  const auto listed = [&path](const std::string& parent, const char* names) {
    return path.rfind(parent, 0) == 0 && path.find(' ') == std::string::npos &&
           std::string(names).find(' ' + path.substr(parent.size()) + ' ') != std::string::npos;
  };
  if (listed("/SR/DATA/", kFloats)) return 1;
  if (listed("/SR/DATA/", kDataLongs) || listed("/SR/STATE/", kStateLongs)) return 2;
  if (path == "/SR/DATA/TIME") return 3;
  if (path == "/CRC") return 4;
  for (int record = 0; record < 8; ++record)
    if (path == std::string("/SR/") + kRecords[record]) return 5 + record;
  return 0;
}

template <class Number>
std::optional<Number> NumberOf(const std::string& text) {
  std::istringstream in(text);
  Number value;
  if (in >> value) return value;
  return {};
}

int Field(const std::string& text, size_t position, size_t length) {
  return position + length > text.size() ? 0 : NumberOf<int>(text.substr(position, length)).value_or(0);
}

std::string Replaced(std::string text) {
  const std::pair<std::string, std::string> escapes[] = {
      {"2F", "/"}, {"3C", "<"}, {"3E", ">"}, {"9", "\t"}, {"A", "\r\n"}};
  for (size_t at = 0; (at = text.find("%0x", at)) != std::string::npos; ++at)
    for (const auto& [code, character] : escapes)
      if (text.compare(at + 3, code.size(), code) == 0) {
        text.replace(at, 3 + code.size(), character);
        break;
      }
  return text;
}

std::vector<SoilDevice::FileInfo> Files(const std::string& text) {
  std::vector<SoilDevice::FileInfo> files;
  std::istringstream in(text);
  SoilDevice::FileInfo file;
  while (std::getline(in, file.name, '=') && in >> file.size) {
    files.push_back(file);
    in.ignore();
  }
  return files;
}

void Reread(const std::string& line, time_t& last_time, Log& log) {
  if (line.empty() || line[0] != '<') return;
  std::istringstream in(line);
  XMLParser parser(in);
  std::vector<std::string> names;
  SoilData data;
  data.time = last_time;
  int record = 0;
  for (auto token = parser.GetNextToken(); token != XMLParser::END_DOC && token != XMLParser::ERROR;
       token = parser.GetNextToken()) {
    const std::string text = parser.GetTokenString();
    if (token == XMLParser::START_ELEMENT) names.push_back(text);
    if (token == XMLParser::END_ELEMENT && !names.empty() && names.back() == text) names.pop_back();
    std::string path;
    for (const std::string& name : names) path += '/' + name;
    if (token == XMLParser::START_ELEMENT && record == 0) record = Kind(path);
    if (token != XMLParser::STRING) continue;
    const int kind = Kind(path);
    if (kind == 1) {
      if (const auto value = NumberOf<float>(text)) data.floats[path] = *value;
    } else if (kind == 2) {
      if (const auto value = NumberOf<int32_t>(text)) data.longs[path] = *value;
    } else if (kind == 3) {
      tm when = {};
      when.tm_year = Field(text, 0, 4) - 1900;
      when.tm_mon = Field(text, 4, 2) - 1;
      when.tm_mday = Field(text, 6, 2);
      when.tm_hour = Field(text, 8, 2);
      when.tm_min = Field(text, 10, 2);
      when.tm_sec = Field(text, 12, 2);
      when.tm_isdst = -1;
      data.time = last_time = mktime(&when);
    } else if (kind != 4) {
      data.strings[path] = text;
    }
  }
  const char* const names_of[] = {"info", "measurement", "state", "internal", "external", "data"};
  if (record == 8 || record == 9)
    log.Note(names_of[record - 5], Files(data.strings[record == 9 ? "/SR/CFLIST" : "/SR/LIST"]));
  else if (record == 11)
    log.GotSoilReport(Replaced(data.strings["/SR/REPORT/OB"]));
  else if (record == 12)
    log.GotSoilError(data.strings["/SR/ERROR"]);
  else if (record >= 5)
    log.Note(names_of[record - 5], data);
}

long TimeOf(const std::string& report) {
  std::vector<std::string> lines;
  std::istringstream in(report);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  size_t head = 0;
  while (head < lines.size() && lines[head].substr(0, 4) != "Type") ++head;
  if (head + 1 >= lines.size()) return 0;
  std::vector<std::string> fields[2];
  for (int i : {0, 1}) {
    std::string line = lines[head + i];
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::istringstream words(line);
    for (std::string word; std::getline(words, word, '\t');) fields[i].push_back(word);
  }
  const size_t column = std::find(fields[0].begin(), fields[0].end(), "Date") - fields[0].begin();
  if (column >= fields[1].size()) return 0;
  std::istringstream date(fields[1][column]);
  int64_t number[6];
  char between;
  for (int i = 0; i < 6; ++i) {
    int value = 0;
    if (!(date >> value)) return 0;
    number[i] = value;
    if (i != 2 && i != 5 && !(date >> between)) return 0;
  }
  tm when = {};
  when.tm_year = static_cast<int>(std::max<int64_t>(number[0] - 1900, INT32_MIN));
  when.tm_mon = static_cast<int>(std::max<int64_t>(number[1] - 1, INT32_MIN));
  when.tm_mday = static_cast<int>(number[2]);
  when.tm_hour = static_cast<int>(number[3]);
  when.tm_min = static_cast<int>(number[4]);
  when.tm_sec = static_cast<int>(number[5]);
  when.tm_isdst = -1;
  return mktime(&when);
}

// With an observation file of its own, in memory.
struct Manager : Soil {
  Manager() : Soil(false, false) {
    std::string name = "/dev/shm/moorlog-fuzz-XXXXXX";
    REQUIRE(mkdtemp(name.data()) != nullptr);
    _confDirectory = name;
  }
  ~Manager() override { std::filesystem::remove_all(_confDirectory); }
  std::string Path() const { return _confDirectory + "/Soil.conf"; }
};

// Ends the device at its first record, which stays its own until it returns; the second comes from in there.
struct Last : SoilDevice::Listener {
  Last() { device->RegisterListener(this); }
  void GotSoilData(SoilData& data) override {
    if (data.longs.empty()) return;
    device->HeadGotLine("<SR><DATA><T1>2</T1></DATA></SR>");
    device.reset();
    REQUIRE(data.longs.at("/SR/DATA/RAWCO2") == 1 && data.floats.empty());
  }
  std::unique_ptr<SoilDevice> device = std::make_unique<SoilDevice>(false);
};

// "HOST" stands for the name of the present host, after which the measurement is named.
void CheckObservationFile(Manager& manager, std::string content) {
  for (size_t at; (at = content.find("HOST")) != std::string::npos && Hostname().find("HOST") == std::string::npos;)
    content.replace(at, 4, Hostname());
  std::ofstream(manager.Path(), std::ios::binary) << content;
  const Json::Value before = ReadStateFile(manager.Path());
  SoilData data;
  data.longs = {{"/SR/STATE/CUROB", 7}, {"/SR/STATE/OBCOMPLETE", 100}};
  manager.GotSoilStatus(data);
  const std::string file = Hostname();
  data.strings = {{"/SR/MEASUREMENT/NAME", file}, {"/SR/MEASUREMENT/LOCATION", "INT"}};
  manager.GotSoilMeasurement(data);
  Json::Value after = ReadStateFile(manager.Path());
  const Json::Value& member = before[file];
  const int had = member.isObject() && member["obs"].isInt() ? member["obs"].asInt() : 0;
  REQUIRE(had < 7 ? after[file]["obs"].asInt() == 7 : after == before);
  for (const std::string& name : before.getMemberNames()) REQUIRE(name == file || after[name] == before[name]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  static Manager manager;
  if (data[0] % 8 == 0) {
    CheckObservationFile(manager, bytes);
  } else if (data[0] % 8 == 1) {
    Log log;
    manager.RegisterListener(&log);
    if (const Elsewhere elsewhere; true) manager.GotSoilReport(bytes);
    manager.RegisterListener(nullptr);
    REQUIRE(log.text.str() == std::to_string(TimeOf(bytes)) + ' ' + bytes + '\n');
  } else {
    const bool verbose = data[0] % 8 == 2;
    SoilDevice device(verbose);
    Log log, expected;
    std::ostringstream printed;
    std::string lines_printed;
    std::streambuf* const output = std::cout.rdbuf(printed.rdbuf());
    for (Log* listener : {static_cast<Log*>(nullptr), &log}) {
      REQUIRE(device.RegisterListener(listener) == nullptr);
      device.HeadOpened();
      device.HeadConnected("there");
      device.HeadClosed();
    }
    expected.text << "opened\nconnected there\nclosed\n";
    time_t last_time = 0;
    std::istringstream lines(bytes);
    for (std::string line; std::getline(lines, line);) {
      if (const Elsewhere elsewhere; true) device.HeadGotLine(line);
      Reread(line, last_time, expected);
      if (verbose) lines_printed += "Soil Rx: " + line + '\n';
    }
    std::cout.rdbuf(output);
    Last().device->HeadGotLine("<SR><DATA><RAWCO2>1</RAWCO2></DATA></SR>");
    REQUIRE(log.text.str() == expected.text.str());
    REQUIRE(printed.str() == lines_printed);
  }
  return 0;
}
