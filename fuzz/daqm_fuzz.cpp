// A session with the modules against a plain second form of it: what it prints, sends, tells its listener and passes on
// to a client of its bridge, line by line from both sides and tick by tick; data sets of every shape with it.
//
// Input: a byte of which bit 0 is the first flag of the session and bit 1 the second; then lines, each an order:
//
//   B... b...   a line from the bus; B adds its right sum        C... c...   the same from a client of the bridge
//   T<n>        n seconds go by, where the tick runs             S<n>        GPS time: module 0's clock plus n
//   K<n> D      connects to that port, disconnects               L0 L1       live data off, on
//   R0 R1       no listener, one                                 all else    nothing

#include <jsoncpp/json/json.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "daqm/daqm.h"
#include "emulators/own_host.h"
#include "emulators/poll_runner.h"
#include "emulators/pty.h"
#include "emulators/virtual_time.h"
#include "fuzz/daqmtool.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

using Texts = std::vector<std::string>;
using Values = std::vector<double>;

constexpr long kZone = 5'400;  // seconds ahead of UTC

// i386 hands a double on in a register that makes each NaN a quiet one.
#ifdef __i386__
constexpr uint64_t kQuiet = 0x0008000000000000;
#else
constexpr uint64_t kQuiet = 0;
#endif

// Throws at a column named "throw".
struct Log : DAQM::Listener {
  explicit Log(std::ostream& stream) : out(stream) {}
  void Header(const char* kind, const Texts& names, const Texts& units) const {
    out << kind << " header";
    for (size_t i = 0; i < std::max(names.size(), units.size()); ++i) out << ' ' << names.at(i) << '|' << units.at(i);
    out << '\n';
    if (std::find(names.begin(), names.end(), "throw") != names.end()) throw std::runtime_error("listener");
  }
  void Row(const char* kind, long time, const Values& values) const {
    out << kind << " row " << time;
    for (const double value : values) out << ' ' << (std::bit_cast<uint64_t>(value) | (std::isnan(value) ? kQuiet : 0));
    out << '\n';
  }
  void GotDAQMConnected(unsigned port) override { out << "connected " << port << '\n'; }
  void GotDAQMSerial(std::string id, std::string serial) override { out << "serial " << id << ' ' << serial << '\n'; }
  void GotDAQMVersion(std::string id, std::string text) override { out << "version " << id << ' ' << text << '\n'; }
  void GotDAQMDisconnected() override { out << "disconnected\n"; }
  void GotDAQMHeader(const Texts& names, const Texts& units) override { Header("stored", names, units); }
  void GotDAQMData(long time, const Values& values) override { Row("stored", time, values); }
  void GotDAQMBackupHeader(const Texts& names, const Texts& units) override { Header("backup", names, units); }
  void GotDAQMBackupData(long time, const Values& values) override { Row("backup", time, values); }
  void GotDAQMLiveHeader(const Texts& names, const Texts& units) override { Header("live", names, units); }
  void GotDAQMLiveData(long time, const Values& values) override { Row("live", time, values); }
  void GotDAQMReserved() override { abort(); }
  void GotDAQMPowerOff() override { out << "power off\n"; }
  std::ostream& out;
};

uint32_t Sum(const std::string& text) {
  uint32_t sum = 0;
  for (size_t i = 0; i < text.size(); ++i)
    sum ^= static_cast<uint32_t>(static_cast<unsigned char>(text[i])) << (24 - i % 4 * 8);
  return sum;
}

std::string Framed(const std::string& body) {
  const size_t first = body.find('"');
  const size_t second = first == body.npos ? body.npos : body.find('"', first + 1);
  char sum[16];
  std::snprintf(sum, sizeof sum, "%08X\n", Sum(second == body.npos ? body : body.substr(second)));
  return body + sum;
}

// One kind of rows, across all modules.
struct Sets {
  bool changed = false;
  long time = 0;
  std::map<std::string, long> state;
  std::map<std::string, std::map<int, std::pair<std::string, std::string>>> columns;
  std::map<std::string, std::map<int, double>> values;

  static int Column(const std::string& key) {
    return static_cast<int>(std::clamp<int64_t>(std::strtol(key.c_str(), nullptr, 10), INT32_MIN, INT32_MAX));
  }
  bool Has(const std::string& id) const { return state.count(id) != 0; }
  bool All(bool (*test)(long value, long first)) const {
    for (const auto& [id, value] : state)
      if (!test(value, state.begin()->second)) return false;
    return true;
  }
  bool Ready() const {
    return !state.empty() && All([](long value, long first) { return value > 0 && value == first; });
  }
  bool SomeReady() const {
    return !All([](long value, long) { return value <= 0; });
  }
  bool Complete() const {
    return All([](long value, long) { return value != -1; });
  }
  bool Overwrites(const std::string& id) { return Has(id) && state[id] > 0; }
  void Info(const std::string& id, const Json::Value& info, bool distrust) {
    if (info.size() < 2) return;
    const int remaining = info[1U].asInt();
    for (unsigned i = 2; i < info.size(); ++i)
      for (const std::string& key : info[i].getMemberNames()) {
        const Json::Value& pair = info[i][key];
        if (pair.size() < 2) continue;
        std::string name = pair[0U].asString(), unit = pair[1U].asString();
        if (name.empty()) continue;
        for (char& c : name)
          if (c == '-' || std::isspace(static_cast<unsigned char>(c)) != 0) c = '_';
        columns[id][Column(key)] = {name, unit.empty() ? "NONE" : unit};
        changed = true;
      }
    if (!distrust && remaining == 0 && Has(id) && state[id] == -1) state[id] = 0;
  }
  // What throws changes nothing.
  void Data(const std::string& id, const Json::Value& data) {
    if (data.size() <= 1) return;
    const int when = data[1U].asInt();
    std::map<int, double> fresh;
    for (unsigned i = 2; i < data.size(); ++i)
      for (const std::string& key : data[i].getMemberNames()) {
        const Json::Value& value = data[i][key];
        fresh[Column(key)] = value.isNull() ? std::bit_cast<double>(0x7FF4000000000000) : value.asDouble();
      }
    time = when;
    const bool known = values.count(id) != 0;
    changed = changed || !known || fresh.size() != values[id].size();
    for (const auto& [column, value] : fresh) changed = changed || values[id].count(column) == 0;
    values[id] = fresh;
    if (Has(id) && state[id] != -1) state[id] = when;
  }
  void Get(Values& out, bool clear) {
    for (auto& [id, module] : values) {
      if (Has(id) && state[id] != -1) state[id] = 0;
      for (auto& [column, value] : module) {
        out.push_back(value);
        if (clear) value = std::bit_cast<double>(0x7FF4000000000000);
      }
    }
  }
  void Headers(Texts& names, Texts& units) {
    for (auto& [id, module] : values)
      for (auto& [column, value] : module) {
        names.push_back(columns[id][column].first);
        units.push_back(columns[id][column].second);
      }
    changed = false;
  }
};

struct Model {
  Model(bool debug_flag, bool tty_flag, std::string path)
      : debug(debug_flag), verbose(debug_flag || tty_flag), device(std::move(path)) {}

  void Write(const std::string& line) {
    if (!open) return;
    if (verbose) out << "DAQM Tx: " << line;
    if (sent.size() + line.size() <= 4'096)
      sent += line;
    else
      out << "ERROR: DAQMDevice: No room for a line of " << line.size() << " bytes: " << device << '\n';
  }
  void Send(const std::string& body) { Write(Framed(body)); }
  void Ask(const std::string& id, const std::string& query) { Send("{\"" + id + "\":\"" + query + "\"}"); }

  void Connect(unsigned number) {
    port = number < 3 ? number : 0;
    Disconnect();
    if (port == 0) return;
    out << "Exporting GPIO13\nSetting GPIO13 active high\nSetting GPIO13 to out\n"
           "DAQMDevice: XON/XOFF is disabled\nSetting GPIO13 to 1\n";
    open = true;
    sent.clear();
    Write("\n");
    Ask("all", "identify");
  }
  void Disconnect() {
    if (open) out << "Setting GPIO13 to 0\n";
    open = false;
    if (connected && listener) log.GotDAQMDisconnected();
    connected = false;
  }
  bool Right(const std::string& line) {
    if (line.size() < 9) throw std::out_of_range("short");
    const std::string body = line.substr(0, line.size() - 9), field = line.substr(line.size() - 9);
    const size_t first = line.find('"'), second = first == line.npos ? line.npos : line.find('"', first + 1);
    const uint32_t calculated = Sum(second == line.npos ? body : second < body.size() ? body.substr(second) : "");
    uint32_t embedded = 0;
    std::istringstream in(field);
    if (!(in >> std::hex >> embedded)) embedded = 0;
    if (in && embedded == calculated) return true;
    char sums[100];
    std::snprintf(sums, sizeof sums, "\n     Embedded checksum: %08x\n   Calculated checksum: %08x\n", embedded,
                  calculated);
    out << "ERROR: Invalid checksum: " << line << sums;
    return false;
  }
  static std::string TextOf(const std::string& line) {
    std::string text = line.substr(0, line.size() - 9);
    for (size_t at = 0; (at = text.find("nan", at)) != text.npos; ++at) text.replace(at, 3, "null");
    return text;
  }

  void BusLine(const std::string& line) {
    if (debug) out << "Got DAQM Response: " << line << '\n';
    if (!connected) {
      connected = true;
      if (listener) log.GotDAQMConnected(port);
    }
    bool pass = true;
    if (line[0] == '{') {
      if (Right(line)) {
        pass = Json(TextOf(line));
      } else {
        bad_sum = true;
        identify_in = 10;
        if (open) out << device << " ERRORS:  FRAMING: 0 OVERRUN: 0 PARITY: 0 BREAK: 0 BUFOVERRUN: 0\n";
      }
    }
    if (pass) passed += line;
  }
  bool Json(const std::string& text) {
    bool pass = true;
    try {
      Json::Value root;
      if (!Json::Reader().parse(text, root, true)) return true;
      if (debug) out << text << '\n';
      for (const std::string& id : root.getMemberNames())
        if (!Value(id, root[id])) pass = false;
    } catch (const std::exception& error) {
      out << "ERROR: Invalid JSON: " << text << " : " << error.what() << '\n';
      return true;
    }
    return pass;
  }
  bool Value(const std::string& id, const Json::Value& value) {
    if (!value.isObject()) {
      if (value.isString() && value.asString() == "identify") Identify(id);
      if (value.isString() && value.asString() == "heathlinkpoweroff" && open && listener) {
        Ask("drm", "heathlinkpoweroffready");
        power_off_in = 2;
      }
      return true;
    }
    const auto holds = [&](const char* key, const char* tag) {
      if (!value.isMember(key)) return false;
      if (debug) out << tag << ": id=" << id << " json=" << value[key] << '\n';
      return true;
    };
    if (holds("backupdata", "BACKUPDATA")) return Report(backup, id, value["backupdata"], &Model::BackupRow), false;
    if (holds("livedata", "LIVEDATA")) return live.Data(id, value["livedata"]), true;
    if (holds("data", "DATA")) {
      if (id == "0" && value["data"].size() > 1) {
        clock = value["data"][1U].asInt();
        StartTick();
      }
      Report(data, id, value["data"], &Model::StoredRow);
    } else if (holds("queryvoltageresponse", "DRM VOLTAGES")) {
      Voltages(value["queryvoltageresponse"], data, voltages);
    } else if (holds("backupqueryvoltageresponse", "DRM VOLTAGES")) {
      Voltages(value["backupqueryvoltageresponse"], backup, backup_voltages);
      return false;
    } else if (holds("datainfo", "DATAINFO")) {
      data.Info(id, value["datainfo"], bad_sum);
      live.Info(id, value["datainfo"], bad_sum);
      if (!ready_sent) {
        backup.Info(id, value["datainfo"], bad_sum);
        if (backup.Complete()) Ready();
      }
    } else if (holds("time", "TIME")) {
      Time(id, value["time"]);
    } else if (holds("serial", "SERIAL")) {
      const std::string text = id == "drm" ? "" : value["serial"].asString();
      if (!text.empty()) devices[id].first = text;
      if (!text.empty() && listener) log.GotDAQMSerial(id, text);
    } else if (holds("swversion", "SWVER")) {
      const std::string text = id == "drm" ? "" : value["swversion"].asString();
      if (!text.empty()) devices[id].second = text;
      if (!text.empty() && listener) log.GotDAQMVersion(id, text);
    } else if (holds("heathlinkreadyresponse", "HEATHLINKREADYRESPONSE")) {
      ready_acked = true;
    }
    return true;
  }
  void Identify(const std::string& id) {
    if (id == "drm") {
      drm = true;
    } else if (!data.Has(id)) {
      Ask(id, "querytime");
      Ask(id, "queryserial");
      Ask(id, "queryswversion");
      Await(id);
    }
  }
  void Await(const std::string& id) {
    data.state[id] = live.state[id] = -1;
    if (!ready_sent) backup.state[id] = -1;
    identify_in = 10;
  }
  void Ready() {
    Ask("drm", "heathlinkready");
    ready_sent = true;
  }
  void Report(Sets& sets, const std::string& id, const Json::Value& json, void (Model::*row)()) {
    if (sets.Overwrites(id)) (this->*row)();
    sets.Data(id, json);
    if (sets.Ready()) (this->*row)();
  }
  void StoredRow() { Row(data, voltages, true, &DAQM::Listener::GotDAQMHeader, &DAQM::Listener::GotDAQMData); }
  void BackupRow() {
    Row(backup, backup_voltages, true, &DAQM::Listener::GotDAQMBackupHeader, &DAQM::Listener::GotDAQMBackupData);
  }
  template <typename Header, typename Data>
  void Row(Sets& sets, const std::map<std::string, double>& more, bool clear, Header header, Data row) {
    if (!listener) return;
    if (sets.changed) {
      Texts names, units;
      sets.Headers(names, units);
      for (const auto& [name, value] : more) {
        std::string small = name;
        for (char& c : small) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        names.push_back(name);
        units.emplace_back(small.find("stat") != small.npos ? "Other" : "V");
      }
      (log.*header)(names, units);
    }
    Values values;
    sets.Get(values, clear);
    for (const auto& [name, value] : more) values.push_back(value);
    (log.*row)(sets.time, values);
  }
  static void Voltages(const Json::Value& json, Sets& sets, std::map<std::string, double>& all) {
    std::map<std::string, double> fresh;
    for (const std::string& name : json.getMemberNames()) {
      const Json::Value& channel = json[name];
      if (name.empty() || !channel.isArray() || channel.size() < 2) continue;
      const double value = channel[0U].asDouble();
      if (channel[1U].asInt() != 0) fresh[name] = value;
    }
    std::set<std::string> before, after;
    for (const auto& channel : all) before.insert(channel.first);
    for (const auto& channel : fresh) after.insert(channel.first);
    if (before != after) sets.changed = true;
    all = fresh;
  }
  void Time(const std::string& id, const Json::Value& json) {
    if (!json.isMember("sec")) return;
    const int sec = json["sec"].asInt();
    const int offset = json.isMember("offset") ? json["offset"].asInt() : -1;
    if (id == "0") {
      clock = sec;
      if (!ticking) StartTick();
    } else if (clock > 0 && (clock - sec > 3 || sec - clock > 3)) {
      need_sync = true;
      return;
    }
    if (offset != kZone) need_sync = true;
  }
  void StartTick() {
    ticking = true;
    expiry = PollTimer::Now() + 1'000'000'000;
  }

  void Tick() {
    expiry += 1'000'000'000;
    if (clock < std::numeric_limits<long>::max()) ++clock;
    if (live.SomeReady())
      Row(live, voltages, false, &DAQM::Listener::GotDAQMLiveHeader, &DAQM::Listener::GotDAQMLiveData);
    if (drm) {
      if (--voltages_in <= 0) {
        voltages_in = 30;
        Ask("drm", "queryvoltage");
        if (ready_sent && !ready_acked) {
          Ready();
          out << "DAQM: Had to resend heathlinkready.\n";
        }
      }
    }
    if (--identify_in <= 0) {
      identify_in = 30;
      bad_sum = false;
      Ask("all", "identify");
      for (const auto& [id, value] : data.state)
        if (value == -1) Ask(id, "querydatainfo");
    }
    if (listener && power_off_in > 0 && --power_off_in == 0) log.GotDAQMPowerOff();
  }
  void Sync(long seconds) {
    if (seconds < 1) return;
    if (!need_sync && (clock < 1 || (clock - seconds <= 3 && seconds - clock <= 3))) return;
    Send("{\"all\":{\"time\":{\"sec\":" + std::to_string(seconds) + ",\"offset\":" + std::to_string(kZone) + "}}}");
    Ask("0", "querytime");
    out << "Setting DAQM time from GPS: " << seconds << " (was: " << clock << ")\n";
    need_sync = false;
  }
  void ClientLine(const std::string& line) {
    if (debug) out << "Got DAQM Request: " << line << '\n';
    if (line[0] == '{' && Right(line)) {
      const std::string text = TextOf(line);
      try {
        Json::Value root;
        if (Json::Reader().parse(text, root, true))
          for (const std::string& id : root.getMemberNames())
            if (root[id].isString() && root[id].asString() == "storeconfig") Stored(id);
      } catch (const std::exception& error) {
        out << "ERROR: Invalid JSON: " << text << " : " << error.what() << '\n';
      }
    }
    Write(line);
  }
  void Stored(const std::string& id) {
    if (id == "drm") return;
    if (id != "all") return Await(id);
    for (const auto& [known, value] : std::map(data.state)) Await(known);
  }
  std::string Lists() const {
    std::string serials;
    std::set<std::string> versions;
    for (const auto& [id, its] : devices) {
      if (!its.first.empty()) serials += (serials.empty() ? "" : " ") + its.first;
      if (!its.second.empty()) versions.insert(its.second);
    }
    serials += '|';
    for (const std::string& version : versions) serials += version + ' ';
    if (serials.back() == ' ') serials.pop_back();
    return serials;
  }

  const bool debug, verbose;
  const std::string device;
  std::ostringstream out;
  Log log{out};
  bool listener = true, open = false, connected = false, need_sync = false, ready_sent = false, ready_acked = false,
       drm = false, bad_sum = false, ticking = false;
  unsigned port = 0;
  long clock = -1;
  int64_t expiry = 0;
  int voltages_in = 0, identify_in = 30, power_off_in = 0;
  std::map<std::string, double> voltages, backup_voltages;
  Sets data, live, backup;
  std::map<std::string, std::pair<std::string, std::string>> devices;
  std::string sent, passed;
};

struct Session : DAQM {
  using DAQM::DAQM;
  void ClientOpened(SocketClient&) override { ++opened; }
  int opened = 0;
};

struct World {
  World() {
    setenv("TZ", "XST-1:30", 1);
    EnterOwnNetwork();  // else the port is that of the machine
    Gpio::_debug = true;
    std::cerr.rdbuf(nullptr);  // a pseudo-terminal has no error counters, and says so
    DAQM::port_to_dev = {{"", 0}, {pty.Path(), 13}, {pty.Path(), 13}};
    PollProcessor::Instance();
  }
  // What is under way gets the real time that it needs.
  template <typename Done>
  void Await(Done done) {
    time.SetGrace(2'000);
    REQUIRE(PollUntil(done, 1));
    time.SetGrace(0);
  }
  VirtualTime time;
  Pty pty;
};

// Standard output, kept.
struct Captured {
  Captured() : before(std::cout.rdbuf(text.rdbuf())) {}
  ~Captured() { std::cout.rdbuf(before); }
  std::ostringstream text;
  std::streambuf* const before;
};

struct Run {
  Run(World& its_world, int flags)
      : world(its_world),
        session((flags & 1) != 0, (flags & 2) != 0),
        model((flags & 1) != 0, (flags & 2) != 0, its_world.pty.Path()) {
    session.RegisterListener(&log);
    world.Await([this] { return session.opened == 1; });
    Obey("K1");
  }
  ~Run() {
    session.Disconnect();
    world.pty.Read();
  }

  // The same to both, with what they throw.
  template <typename Real, typename Plain>
  void Both(Real real, Plain plain) {
    std::string thrown[2];
    const auto contain = [](std::string& text, const auto& call) {
      try {
        call();
      } catch (const std::out_of_range&) {
        text = "short";
      } catch (const std::runtime_error& error) {
        text = error.what();
      }
    };
    contain(thrown[0], real);
    contain(thrown[1], plain);
    REQUIRE(thrown[0] == thrown[1]);
    REQUIRE(captured.text.str() == model.out.str());
    REQUIRE(session.IsActive() == model.ticking && session.Expiry() == model.expiry);
  }
  void Obey(const std::string& order) {
    const std::string text = order.substr(1);
    const int number = std::clamp(std::atoi(text.c_str()), -100, 100);
    switch (order[0]) {
      case 'B':
        return Bus(Framed(text));
      case 'b':
        return Bus(text + '\n');
      case 'C':
        return Client(Framed(text));
      case 'c':
        return Client(text + '\n');
      case 'T':
        for (int i = 0; i < number && session.IsActive(); ++i) {
          world.time.Advance(1'000);
          Both([&] { session.HandleTimeout(); }, [&] { model.Tick(); });
        }
        return;
      case 'S': {
        const auto moment =
            static_cast<long>(std::min<int64_t>(int64_t{model.clock} + number, std::numeric_limits<long>::max()));
        return Both([&] { session.SyncToGPSTime(moment); }, [&] { model.Sync(moment); });
      }
      case 'K':
        return Both([&] { session.Connect(number < 0 ? 99U : static_cast<unsigned>(number)); },
                    [&] { model.Connect(number < 0 ? 99U : static_cast<unsigned>(number)); });
      case 'D':
        return Both([&] { session.Disconnect(); }, [&] { model.Disconnect(); });
      case 'L':
        return Both([&] { number != 0 ? session.StartLiveData() : session.StopLiveData(); },
                    [&] {
                      model.Send(number != 0 ? R"({"all":{"livedata":1}})" : R"({"all":{"livedata":0}})");
                      if (number != 0) model.live.changed = true;
                    });
      case 'R':
        model.listener = number != 0;
        session.RegisterListener(model.listener ? &log : nullptr);
    }
  }
  void Bus(const std::string& line) {
    Both([&] { session.GotDAQMLine(line); }, [&] { model.BusLine(line); });
  }
  void Client(const std::string& line) {
    Both([&] { session.GotRequest(*tool.client, line); }, [&] { model.ClientLine(line); });
  }
  // What is queued arrives at both ends, whole.
  void Finish() {
    REQUIRE(session.SerialNumberList() + '|' + session.VersionNumberList() == model.Lists());
    session.SetTimeout(-1);
    std::string sent;
    world.Await([&] { return tool.got.size() >= model.passed.size(); });
    if (model.open) world.Await([&] { return (sent += world.pty.Read()).size() >= model.sent.size(); });
    REQUIRE(tool.got == model.passed);
    REQUIRE(!model.open || sent == model.sent);
  }

  World& world;
  Captured captured;
  Session session;
  Log log{std::cout};
  Model model;
  DAQMTool tool;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool root = BecomeRoot();  // without it no bus has power, and nothing can be asked
  if (size == 0 || !root) return 0;
  static World world;
  std::istringstream script(std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
  Run run(world, data[0]);
  for (std::string order; std::getline(script, order);)
    if (!order.empty()) run.Obey(order);
  run.Finish();
  return 0;
}
