// Lines into the data handler: what two listeners hear is what a plain second form makes of each line.
//
// Input: lines, each with its line feed but perhaps the last one. Each goes in as it is, and once more with its sum put
// right. A document's marks are part of what is heard.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "analyser/datahandler.h"
#include "net/socketaddress.h"
#include "runtime/datachecksum.h"

namespace {

using Columns = std::vector<std::string>;
using Heard = std::vector<std::string>;

std::string Joined(const Columns& columns) {
  std::string all;
  for (const std::string& column : columns) all += column + '|';
  return all;
}

std::string Changes(const Doc5500& document) {
  std::ostringstream out;
  document.changed(out);
  return out.str();
}

class Ear : public DataHandler::Listener {
 public:
  Ear(const char* name, Heard& heard) : _name(name), _heard(heard) {}

  void DataHandler_Connected(std::string peer) override { Hear("Connected", peer); }
  void DataHandler_Disconnected() override { Hear("Disconnected", ""); }
  void DataHandler_DiskMounted(std::string one, std::string two) override { Hear("DiskMounted", one + ',' + two); }
  void DataHandler_DiskUnmounted(std::string one, std::string two) override { Hear("DiskUnmounted", one + ',' + two); }
  void DataHandler_GotLine(std::string line) override { Hear("GotLine", line); }
  void DataHandler_GotDATAHColumns(Columns columns) override { Hear("GotDATAHColumns", Joined(columns)); }
  void DataHandler_GotDATAColumns(Columns columns) override { Hear("GotDATAColumns", Joined(columns)); }
  void DataHandler_GotDATAH(std::string line) override { Hear("GotDATAH", line); }
  void DataHandler_GotDATA(std::string line) override { Hear("GotDATA", line); }
  void DataHandler_GotDATASTATH(std::string line) override { Hear("GotDATASTATH", line); }
  void DataHandler_GotDATASTAT(std::string line) override { Hear("GotDATASTAT", line); }
  void DataHandler_GotDATACLOCKH(std::string line) override { Hear("GotDATACLOCKH", line); }
  void DataHandler_GotDATACLOCK(std::string line) override { Hear("GotDATACLOCK", line); }
  void DataHandler_GotDATADIAGH(std::string line) override { Hear("GotDATADIAGH", line); }
  void DataHandler_GotDATADACSH(std::string line) override { Hear("GotDATADACSH", line); }
  void DataHandler_GotDATADACS(std::string line) override { Hear("GotDATADACS", line); }
  void DataHandler_GotWaveform(std::string line) override { Hear("GotWaveform", line); }
  void DataHandler_GotDATAEVENTColumns(Columns columns) override { Hear("GotDATAEVENTColumns", Joined(columns)); }
  void DataHandler_GotDATAEVENT(std::string line) override { Hear("GotDATAEVENT", line); }
  void DataHandler_GotXMLLine(std::string line) override { Hear("GotXMLLine", line); }
  void DataHandler_GotXMLDoc(const Doc5500& document) override { Hear("GotXMLDoc", Changes(document)); }
  void DataHandler_GotUnknownLine(std::string line) override { Hear("GotUnknownLine", line); }
  void DataHandler_GotBadChecksum(std::string line) override { Hear("GotBadChecksum", line); }

 private:
  void Hear(const std::string& operation, const std::string& what) { _heard.push_back(_name + operation + ' ' + what); }

  const std::string _name;
  Heard& _heard;
};

// Whose sum is compared, and whose columns are told.
const std::map<std::string, std::pair<bool, bool>> kKeys = {
    {"DATAH", {false, true}},      {"DATA", {true, true}},         {"DATASTATH", {false, false}},
    {"DATASTAT", {true, false}},   {"DATACLOCKH", {false, false}}, {"DATACLOCK", {true, false}},
    {"DATADIAGH", {false, false}}, {"DATADACSH", {false, false}},  {"DATADACS", {true, false}},
    {"DATAR", {true, false}},      {"DATARDC", {true, false}},     {"DATAS", {true, false}},
    {"DATASDC", {true, false}},    {"DATAEVENT", {false, true}},
};

bool HasItsSum(const std::string& line) {
  const size_t length = line.size();
  if (length < 4) return false;
  int sum = 0;
  for (size_t i = 0; i + 4 < length; ++i) sum = (sum + static_cast<unsigned char>(line[i])) % 256;
  std::istringstream field(line.substr(length - 4, 3));
  int said = 0;
  field >> said;
  return said == sum;
}

class Plain {
 public:
  Heard Expected(const std::string& line) {
    Heard heard;
    Both(heard, "GotLine " + line);
    if (line.substr(0, 1) == "<")
      Document(heard, line);
    else
      Data(heard, line);
    return heard;
  }
  bool threw = false;

 private:
  static void Both(Heard& heard, const std::string& what) {
    for (const char* name : {"1 ", "2 "}) heard.push_back(name + what);
  }

  static void Data(Heard& heard, const std::string& line) {
    std::istringstream words(line);
    std::string key;
    words >> key;
    const auto known = kKeys.find(line.substr(0, 1) == "D" ? key : "");
    if (known == kKeys.end()) return Both(heard, "GotUnknownLine " + line);
    const auto [is_checked, has_columns] = known->second;
    if (is_checked && !HasItsSum(line)) return Both(heard, "GotBadChecksum " + line);
    const bool is_waveform = std::set<std::string>{"DATAR", "DATARDC", "DATAS", "DATASDC"}.count(key) != 0;
    const std::string got = "Got" + (is_waveform ? "Waveform" : key);
    if (!has_columns) return Both(heard, got + ' ' + line);
    const Columns columns{std::istream_iterator<std::string>(words), {}};
    for (const std::string name : {"1 ", "2 "}) {
      heard.push_back(name + got + ' ' + line);
      heard.push_back(name + got + "Columns " + Joined(columns));
    }
  }

  void Document(Heard& heard, const std::string& line) {
    Both(heard, "GotXMLLine " + line);
    if (line.find("<ack>true</ack") != std::string::npos) return;
    std::istringstream in(line);
    std::ostringstream out;
    try {
      _document.configure(in, out);
    } catch (const SocketError&) {
      threw = true;
      return;
    }
    Both(heard, "GotXMLDoc " + Changes(_document));
    _document.tn5500.cmd.set_to_default();
    _document._set_changed(false);
  }

  Doc5500 _document;
};

void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  Heard heard;
  Ear first("1 ", heard), second("2 ", heard);
  DataHandler handler, unheard;
  handler.RegisterListener(&first);
  handler.RegisterListener(&second);
  handler.DispatchConnected("head");
  handler.DispatchDiskMounted("a", "b");
  handler.DispatchDiskUnmounted("c", "d");
  handler.DispatchDisconnected();
  const Heard owner = {"Connected head", "DiskMounted a,b", "DiskUnmounted c,d", "Disconnected "};
  for (size_t i = 0; i < 2 * owner.size(); ++i) Require(heard.at(i) == (i % 2 == 0 ? "1 " : "2 ") + owner[i / 2]);
  Plain plain;
  const auto ask = [&](const std::string& line) {
    heard.clear();
    plain.threw = false;
    const Heard expected = plain.Expected(line);
    bool threw = false;
    try {
      handler.DispatchLine(line);
    } catch (const SocketError&) {
      threw = true;
    }
    Require(heard == expected && threw == plain.threw);
    try {
      unheard.DispatchLine(line);
    } catch (const SocketError&) {
      Require(plain.threw);
    }
  };
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
    std::string line = text.substr(at, end - at);
    at = end;
    // The list of zones is that of the process, and the plain form's document would change it for the other.
    if (line.find("zone") != std::string::npos) continue;
    ask(line);
    if (line.size() < 4 || line[0] == '<') continue;
    line.resize(line.size() - 4);
    AppendCheckSum(line);
    ask(line);
  }
  return 0;
}
