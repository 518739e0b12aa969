// Lines of the soil instrument, the comings and goings of its link and steps of the timer into its manager: what it
// sends, what it tells its owner, whether its timer runs and what it keeps in its file are those of a plain second
// form.
//
// Input: lines of the instrument, in which "HOST" stands for the name of the present host. One that begins with "@" is
// a step of the timer so many hours on; "+" a connection, and "-" its end; "!" the owner leaves, or comes back.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "emulators/virtual_time.h"
#include "json/statefile.h"
#include "net/net_util.h"
#include "soil/soil.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

const std::string& Host() {
  static const std::string host = Hostname();
  return host;
}

tm Local(time_t moment) {
  tm local = {};
  localtime_r(&moment, &local);
  return local;
}

struct Owner : Soil::Listener {
  void GotSoilConnected(std::string target) override { std::cout << "connected " << target << '\n'; }
  void GotSoilData(SoilData& data) override { std::cout << "data " << data << '\n'; }
  void GotSoilReport(long, std::string report) override { std::cout << "report " << report << '\n'; }
  void GotSoilError(std::string error) override { std::cout << "error " << error << '\n'; }
};

struct Plain : SoilDevice::Listener {
  void GotSoilConnected(std::string target) override {
    Send("<CMD><QUERY>STATE</QUERY></CMD>");
    Query();
    Tell("connected " + target);
    active = true;
  }
  void GotSoilClosed() override { active = false; }
  void GotSoilData(SoilData& data) override {
    std::ostringstream text;
    text << "data " << data;
    Tell(text.str());
  }
  void GotSoilReport(std::string report) override { Tell("report " + report); }
  void GotSoilError(std::string error) override { Tell("error " + error); }
  void GotSoilStatus(SoilData& data) override {
    current = data.longs["/SR/STATE/CUROB"];
    complete = data.longs["/SR/STATE/OBCOMPLETE"];
    if (data.strings["/SR/STATE/INSTRUMENT"] == "IDLE" && !stopping) Send("<CMD><MEAS>START</MEAS></CMD>");
  }
  void GotSoilInfo(SoilData& data) override {
    if (data.strings["/SR/INFO"] != "SUMMARY_READY") return;
    complete = 100;
    Query();
  }
  void Query() {
    Send("<CMD><MEAS><LIST>1:*</LIST></MEAS></CMD>");
    Send("<CMD><QUERY>MEAS</QUERY></CMD>");
  }
  void GotSoilMeasurement(SoilData& data) override {
    const std::string name = data.strings["/SR/MEASUREMENT/NAME"], place = data.strings["/SR/MEASUREMENT/LOCATION"];
    if (name != Host()) return Stop();
    std::string file = name;
    for (const std::string& known : place == "EXT" ? external : internal)
      if (known.find(name) != known.npos && known.find(".47q") != known.npos) file = known;
    const int64_t last = current - (complete < 100 ? 1 : 0);
    const int64_t fetched = observations.count(file) > 0 ? observations[file] : 0;
    for (int64_t number = std::max(fetched, last - 10'000) + 1; number <= last; ++number) {
      const std::string request =
          "<REPORT><LOC>" + place + "</LOC><INFILE>" + file + "</INFILE><OB>" + std::to_string(number) +
          "</OB><INCHEADER>TRUE</INCHEADER><INC234>TRUE</INC234><ACTION>GETOB</ACTION></REPORT>";
      Send(request);
      out += "<SR>" + request + "</SR>\n";
    }
    if (fetched < last) observations[file] = last;
  }
  void GotSoilIntFileList(const std::vector<SoilDevice::FileInfo>& files) override { Replace(internal, files); }
  void GotSoilExtFileList(const std::vector<SoilDevice::FileInfo>& files) override { Replace(external, files); }
  static void Replace(std::set<std::string>& names, const std::vector<SoilDevice::FileInfo>& files) {
    names.clear();
    for (const auto& file : files) names.insert(file.name);
  }

  void Stop() {
    Send("<CMD><MEAS>STOP</MEAS></CMD>");
    stopping = active = true;
  }
  void Step() {
    const time_t now = time(nullptr);
    if (!stopping && last_step > 0 && Local(last_step).tm_mday != Local(now).tm_mday) return Stop();
    if (stopping) Set(Local(now));
    stopping = false;
    active = true;
    last_step = now;
    Send("<CMD><QUERY>STATE</QUERY></CMD>");
  }
  void Set(const tm& now) {
    char date[64], clock[64];
    snprintf(date, sizeof date, "<CFG><CLOCK><DATE>%04d%02d%02d", now.tm_year + 1900, now.tm_mon + 1, now.tm_mday);
    snprintf(clock, sizeof clock, "<CFG><CLOCK><TIME>%02d%02d%02d", now.tm_hour, now.tm_min, now.tm_sec);
    Send("<CFG><IPOUTRATE>1</IPOUTRATE></CFG>");
    Send(std::string(date) + "</DATE></CLOCK></CFG>");
    Send(std::string(clock) + "</TIME></CLOCK></CFG>");
    Send("<MEASUREMENT><TYPE>CHAMBER</TYPE></MEASUREMENT>");
    Send("<MEASUREMENT><SPLIT>WEEK</SPLIT></MEASUREMENT>");
    Send("<MEASUREMENT><LOCATION>INT</LOCATION></MEASUREMENT>");
    Send("<MEASUREMENT><FILE>APPEND</FILE></MEASUREMENT>");
    Send("<MEASUREMENT><NAME>" + Host() + "</NAME></MEASUREMENT>");
    Send("<CFG><MEASRESTART>TRUE</MEASRESTART></CFG>");
    Send("<CFG><CONTINUE>TRUE</CONTINUE></CFG>");
    Tidy();
    Send("<CMD><MEAS>START</MEAS></CMD>");
  }
  void Tidy() {
    std::vector<std::string> ours(internal.begin(), internal.end());
    std::erase_if(ours, [](const std::string& name) { return name.find(Host()) == name.npos; });
    if (ours.empty()) return;
    Send("<CMD><COPY>" + ours.back() + "</COPY></CMD>");
    ours.pop_back();
    for (const std::string& name : ours) {
      Send("<CMD><MEAS><DELETE>" + name + "</DELETE></MEAS></CMD>");
      observations.erase(name);
      internal.erase(name);
    }
  }
  void Tell(const std::string& text) { out += told ? text + '\n' : ""; }
  void Send(const std::string& command) { out += "Soil Tx: <SR>" + command + "</SR>\n\n"; }

  int64_t current = 0, complete = 0;
  bool stopping = false, active = false, told = true;
  time_t last_step = 0;
  std::set<std::string> internal, external;
  std::map<std::string, int64_t> observations;
  std::string out;
};

// With an observation file of its own, in memory.
struct Manager : Soil {
  Manager() : Soil(true, false) {
    std::string name = "/dev/shm/moorlog-fuzz-XXXXXX";
    REQUIRE(mkdtemp(name.data()) != nullptr);
    _confDirectory = name;
  }
  ~Manager() override { std::filesystem::remove_all(_confDirectory); }
  std::map<std::string, int64_t> Observations() const {
    std::map<std::string, int64_t> observations;
    const Json::Value conf = ReadStateFile(_confDirectory + "/Soil.conf");
    for (const std::string& name : conf.getMemberNames()) observations[name] = conf[name]["obs"].asInt();
    return observations;
  }
};

void Replace(std::string& text, const std::string& what, const std::string& by) {
  for (size_t at = 0; (at = text.find(what, at)) != text.npos; at += by.size()) text.replace(at, what.size(), by);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  Replace(text, "HOST", Host());
  VirtualTime clock(VirtualTime::kDefaultWall + int64_t{8} * 86'400);  // another day of the month than that of 1970
  Manager manager;
  Owner owner;
  manager.RegisterListener(&owner);
  Plain plain;
  SoilDevice ears(false);
  ears.RegisterListener(&plain);
  std::ostringstream printed;
  std::streambuf* const output = std::cout.rdbuf(printed.rdbuf());
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with('@')) {
      clock.Advance(int64_t{3'600'000} * (atoi(line.c_str() + 1) % 10'000));
      manager.HandleTimeout();
      plain.Step();
    } else if (line == "!") {
      plain.told = !plain.told;
      manager.RegisterListener(plain.told ? &owner : nullptr);
    } else if (line == "+" || line == "-") {
      for (SoilDevice* device : {&manager.GetDevice(), &ears})
        line == "+" ? device->HeadConnected("there") : device->HeadClosed();
    } else {
      plain.out += "Soil Rx: " + line + '\n';
      manager.GetDevice().HeadGotLine(line);
      ears.HeadGotLine(line);
    }
    REQUIRE(manager.IsActive() == plain.active);
  }
  std::cout.rdbuf(output);
  REQUIRE(printed.str() == plain.out);
  REQUIRE(manager.Observations() == plain.observations);
  return 0;
}
