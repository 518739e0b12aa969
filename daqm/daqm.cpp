#include "daqm/daqm.h"

#include <jsoncpp/json/value.h>
#include <jsoncpp/json/writer.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <limits>
#include <set>

#include "daqm/jsonmembers.h"
#include "runtime/localtime.h"
#include "runtime/str_util.h"
#include "runtime/superuser.h"

namespace {

// Seconds, of which the timer counts one each.
constexpr int kTick = 1'000;  // milliseconds
constexpr int kVoltagePeriod = 30;
constexpr int kIdentifyPeriod = 30;
constexpr int kIdentifySoon = 10;
constexpr int kPowerOffDelay = 2;
constexpr int kClockTolerance = 3;

constexpr size_t kMostQueued = size_t{1} << 20;  // bytes, for one client
constexpr size_t kTail = 9;                      // bytes of a line: checksum and line feed
constexpr const char* kDRM = "drm";

// What is sent, without checksum and line feed. Queries go to one unit: {"<id>":"<query>"}.
constexpr const char* kQueryTime = "querytime";
constexpr const char* kQuerySerial = "queryserial";
constexpr const char* kQueryVersion = "queryswversion";
constexpr const char* kQueryDataInfo = "querydatainfo";
constexpr const char* kQueryVoltage = "queryvoltage";
constexpr const char* kReady = "heathlinkready";
constexpr const char* kPowerOffReady = "heathlinkpoweroffready";
constexpr const char* kIdentify = "{\"all\":\"identify\"}";
constexpr const char* kStartLive = "{\"all\":{\"livedata\":1}}";
constexpr const char* kStopLive = "{\"all\":{\"livedata\":0}}";

std::string SetTime(long seconds, long offset) {
  return "{\"all\":{\"time\":{\"sec\":" + std::to_string(seconds) + ",\"offset\":" + std::to_string(offset) + "}}}";
}

bool FarApart(long first, long second) {
  return std::abs(int64_t{first} - second) > kClockTolerance;
}

bool IsWord(const Json::Value& value, const char* word) {
  return value.isString() && value == word;
}

// The JSON of a line, without its checksum and line feed.
std::string TextOf(const std::string& line) {
  return _SanitizeJSON(std::string_view(line).substr(0, line.size() - kTail));
}

std::string Joined(const auto& texts) {
  std::string list;
  for (const std::string& text : texts) {
    if (text.empty()) continue;
    if (!list.empty()) list += ' ';
    list += text;
  }
  return list;
}

void TellInvalid(const std::string& text, const std::exception& error) {
  std::cout << "ERROR: Invalid JSON: " << text << " : " << error.what() << std::endl;
}

// Counts as long as it lives.
class Under {
 public:
  explicit Under(int& count) : _count(count) { ++_count; }
  Under(const Under&) = delete;
  Under& operator=(const Under&) = delete;
  ~Under() { --_count; }

 private:
  int& _count;
};

}  // namespace

std::vector<DAQM::DevInfo> DAQM::port_to_dev = {{"", 0}, {"/dev/ttyS1", 13}, {"/dev/ttyS2", 66}, {"/dev/ttyS4", 9}};

// Of the keys that an object holds the first one here counts, and no other.
const DAQM::_Message DAQM::_messages[] = {
    {"backupdata", "BACKUPDATA", &DAQM::HandleBackupData, false},
    {"livedata", "LIVEDATA", &DAQM::HandleLiveData, true},
    {"data", "DATA", &DAQM::HandleData, true},
    {"queryvoltageresponse", "DRM VOLTAGES", &DAQM::HandleVoltages, true},
    {"backupqueryvoltageresponse", "DRM VOLTAGES", &DAQM::HandleBackupVoltages, false},
    {"datainfo", "DATAINFO", &DAQM::HandleDataInfo, true},
    {"time", "TIME", &DAQM::HandleTime, true},
    {"serial", "SERIAL", &DAQM::HandleSerial, true},
    {"swversion", "SWVER", &DAQM::HandleSWVersion, true},
    {"heathlinkreadyresponse", "HEATHLINKREADYRESPONSE", &DAQM::HandleHeathlinkReadyResponse, true},
};

void DAQM::Listener::GotDAQMConnected(unsigned) {}
void DAQM::Listener::GotDAQMLiveHeader(const std::vector<std::string>&, const std::vector<std::string>&) {}
void DAQM::Listener::GotDAQMLiveData(long, const std::vector<double>&) {}
void DAQM::Listener::GotDAQMPowerOff() {}

DAQM::DAQM(bool debug, bool tty_debug)
    : PollTimer(-1, true), _server("\n", Socket::FamilyIPv6), _debug(debug), _tty_debug(tty_debug) {
  _server.RegisterListener(*this);
  _server.Listen(kBridgePort);
}

DAQM::~DAQM() noexcept(false) {
  _server.UnRegisterListener(*this);
  delete std::exchange(_device, nullptr);
}

DAQM::Listener* DAQM::RegisterListener(Listener* listener) {
  return std::exchange(_listener, listener);
}

// --- the bus ---

void DAQM::Connect(unsigned port) {
  _port = port < port_to_dev.size() ? port : 0;
  Connect();
}

void DAQM::Connect() {
  assert(_in_disconnect == 0);
  Disconnect();
  if (_port == 0) return;
  const uid_t user = SuperUser::Gain();
  const DevInfo& info = port_to_dev.at(_port);
  _device = new DAQMDevice(info.device, info.gpio, this, _debug || _tty_debug);
  // Root may take back any identity.
  [[maybe_unused]] const int result = seteuid(user);
  _Write("\n");  // clears whatever stands in the modules' input
  _SendIdentify();
}

void DAQM::Disconnect() {
  assert(_in_line == 0);
  delete std::exchange(_device, nullptr);
  if (!std::exchange(_connected, false) || _listener == nullptr) return;
  const Under disconnecting(_in_disconnect);
  _listener->GotDAQMDisconnected();
}

void DAQM::_Write(const std::string& line) {
  if (_device == nullptr) return;
  if (_device->IsVerbose()) std::cout << "DAQM Tx: " << line << std::flush;
  _device->Write(line);
}

void DAQM::_Send(const std::string& body) {
  _Write(FrameDAQMLine(body));
}

void DAQM::_SendTo(const std::string& id, const char* query) {
  _Send("{\"" + id + "\":\"" + query + "\"}");
}

void DAQM::_SendIdentify() {
  _Send(kIdentify);
}

// The drm takes it as leave to send data, backup data first.
void DAQM::_SendHeathlinkReady() {
  _SendTo(kDRM, kReady);
  _ready_sent = true;
}

void DAQM::StartLiveData() {
  _Send(kStartLive);
  _live.SetChanged();
}

void DAQM::StopLiveData() {
  _Send(kStopLive);
}

bool DAQM::_NeedToSync(long seconds) const {
  return _daqm_time >= 1 && FarApart(_daqm_time, seconds);
}

void DAQM::SyncToGPSTime(long seconds) {
  if (seconds < 1) return;
  if (!_need_sync && !_NeedToSync(seconds)) return;
  _Send(SetTime(seconds, LocalTime(seconds).tm_gmtoff));
  _SendTo("0", kQueryTime);
  std::cout << "Setting DAQM time from GPS: " << seconds << " (was: " << _daqm_time << ")" << std::endl;
  _need_sync = false;
}

std::string DAQM::SerialNumberList() const {
  std::vector<std::string> serials;
  for (const auto& [id, device] : _devices) serials.push_back(device.first);
  return Joined(serials);
}

std::string DAQM::VersionNumberList() const {
  std::set<std::string> versions;
  for (const auto& [id, device] : _devices) versions.insert(device.second);
  return Joined(versions);
}

void DAQM::HandleTimeout() {
  AddTimeout(kTick);  // first: a listener that throws doesn't end it
  if (_daqm_time < std::numeric_limits<long>::max()) ++_daqm_time;
  if (_live.IsSomeDataReady()) _DispatchLiveData();
  if (_drm_seen && --_voltage_countdown <= 0) {
    _voltage_countdown = kVoltagePeriod;
    _SendTo(kDRM, kQueryVoltage);
    if (_ready_sent && !_ready_acked) {
      _SendHeathlinkReady();
      std::cout << "DAQM: Had to resend heathlinkready." << std::endl;
    }
  }
  if (--_identify_countdown <= 0) {
    _identify_countdown = kIdentifyPeriod;
    _checksum_error = false;
    _SendIdentify();
    for (const std::string& id : _data.IdsWaitingForDataInfo()) _SendTo(id, kQueryDataInfo);
  }
  if (_listener != nullptr && _poweroff_countdown > 0 && --_poweroff_countdown == 0) _listener->GotDAQMPowerOff();
}

// --- lines from the bus ---

void DAQM::GotDAQMLine(std::string line) {
  const Under in_line(_in_line);
  if (_debug) std::cout << "Got DAQM Response: " << line << std::endl;
  if (!std::exchange(_connected, true) && _listener != nullptr) _listener->GotDAQMConnected(_port);
  if (line.starts_with('{')) {
    if (!ValidateChecksum(line))
      _HandleChecksumError();
    else if (!HandleDAQMJson(TextOf(line)))
      return;
  }
  _WriteToClients(line);
}

void DAQM::_HandleChecksumError() {
  _checksum_error = true;
  _identify_countdown = kIdentifySoon;
  if (_device != nullptr) _device->DumpTTYErrors();
}

bool DAQM::HandleDAQMJson(const std::string& text) {
  bool for_clients = true;
  try {
    Json::Value root;
    if (!_reader.parse(text, root, true)) return true;
    if (_debug) std::cout << text << std::endl;
    ForEachMember(root, [&](std::string_view name, const Json::Value& value) {
      const std::string id(name);
      if (value.isObject())
        for_clients = HandleDAQMObject(id, value) && for_clients;
      else if (IsWord(value, "identify"))
        HandleIdentify(id);
      else if (IsWord(value, "heathlinkpoweroff"))
        HandlePowerOff();
    });
  } catch (const std::exception& error) {
    TellInvalid(text, error);
    return true;
  }
  return for_clients;
}

// Whether the clients may see it. An unknown key is nothing to us.
bool DAQM::HandleDAQMObject(const std::string& id, const Json::Value& object) {
  for (const _Message& message : _messages) {
    const Json::Value* const json = object.find(message.key.data(), message.key.data() + message.key.size());
    if (json == nullptr) continue;
    if (_debug) std::cout << message.tag << ": id=" << id << " json=" << *json << std::endl;
    (this->*message.handle)(id, *json);
    return message.for_clients;
  }
  return true;
}

void DAQM::HandleIdentify(const std::string& id) {
  if (id == kDRM) {
    _drm_seen = true;
    return;
  }
  if (_data.HasId(id)) return;
  _SendTo(id, kQueryTime);
  _SendTo(id, kQuerySerial);
  _SendTo(id, kQueryVersion);
  _WaitingForDataInfo(id);
}

void DAQM::_WaitingForDataInfo(const std::string& id) {
  _data.WaitingForDataInfo(id);
  _live.WaitingForDataInfo(id);
  if (!_ready_sent) _backup.WaitingForDataInfo(id);
  _identify_countdown = kIdentifySoon;
}

void DAQM::HandleDataInfo(const std::string& id, const Json::Value& json) {
  _data.HandleDataInfo(id, json, _checksum_error);
  _live.HandleDataInfo(id, json, _checksum_error);
  if (_ready_sent) return;
  _backup.HandleDataInfo(id, json, _checksum_error);
  if (_backup.HasAllDataInfo()) _SendHeathlinkReady();
}

void DAQM::HandleHeathlinkReadyResponse(const std::string&, const Json::Value&) {
  _ready_acked = true;
}

void DAQM::HandleData(const std::string& id, const Json::Value& json) {
  if (id == "0" && json.size() > 1) {
    _daqm_time = json[1].asInt();
    SetTimeout(kTick);
  }
  if (_data.WillNewDataOverwrite(id)) _DispatchData(true);
  _data.HandleData(id, json);
  _DispatchData(false);
}

void DAQM::HandleBackupData(const std::string& id, const Json::Value& json) {
  if (_backup.WillNewDataOverwrite(id)) _DispatchBackupData(true);
  _backup.HandleData(id, json);
  _DispatchBackupData(false);
}

void DAQM::HandleLiveData(const std::string& id, const Json::Value& json) {
  _live.HandleData(id, json);
}

void DAQM::_DispatchData(bool force) {
  if (force || _data.IsDataReady())
    _DispatchRow({_data, _voltages, true, &Listener::GotDAQMHeader, &Listener::GotDAQMData});
}

void DAQM::_DispatchBackupData(bool force) {
  if (force || _backup.IsDataReady())
    _DispatchRow({_backup, _backup_voltages, true, &Listener::GotDAQMBackupHeader, &Listener::GotDAQMBackupData});
}

void DAQM::_DispatchLiveData() {
  _DispatchRow({_live, _voltages, false, &Listener::GotDAQMLiveHeader, &Listener::GotDAQMLiveData});
}

void DAQM::_DispatchRow(const _Rows& rows) {
  if (_listener == nullptr) return;
  if (rows.data.IsChanged()) {
    std::vector<std::string> names, units;
    rows.data.GetHeaders(names, units);
    for (const auto& [name, value] : rows.voltages) {
      names.push_back(name);
      units.emplace_back(CaseInsensitiveStringFind(name, "stat", 0) != kCaseInsensitiveNotFound ? "Other" : "V");
    }
    (_listener->*rows.got_header)(names, units);
    if (_listener == nullptr) return;
  }
  std::vector<double> values;
  rows.data.GetData(values, rows.clear);
  for (const auto& [name, value] : rows.voltages) values.push_back(value);
  (_listener->*rows.got_data)(rows.data.Timestamp(), values);
}

void DAQM::HandleVoltages(const std::string&, const Json::Value& json) {
  HandleDRMVoltages(json, _data, _voltages);
}

void DAQM::HandleBackupVoltages(const std::string&, const Json::Value& json) {
  HandleDRMVoltages(json, _backup, _backup_voltages);
}

// [value, enabled] each; a channel that is off is left out.
void DAQM::HandleDRMVoltages(const Json::Value& json, _DataHandler& handler, _Voltages& voltages) {
  _Voltages fresh;
  ForEachMember(json, [&fresh](std::string_view name, const Json::Value& channel) {
    if (name.empty() || !channel.isArray() || channel.size() < 2) return;
    const double value = channel[0].asDouble();
    if (channel[1].asInt() != 0) fresh[std::string(name)] = value;
  });
  const bool same_names = std::equal(fresh.begin(), fresh.end(), voltages.begin(), voltages.end(),
                                     [](const auto& one, const auto& other) { return one.first == other.first; });
  if (!same_names) handler.SetChanged();
  voltages.swap(fresh);
}

void DAQM::HandleSerial(const std::string& id, const Json::Value& json) {
  if (id == kDRM) return;
  const std::string serial = json.asString();
  if (serial.empty()) return;
  _devices[id].first = serial;
  if (_listener != nullptr) _listener->GotDAQMSerial(id, serial);
}

void DAQM::HandleSWVersion(const std::string& id, const Json::Value& json) {
  if (id == kDRM) return;
  const std::string version = json.asString();
  if (version.empty()) return;
  _devices[id].second = version;
  if (_listener != nullptr) _listener->GotDAQMVersion(id, version);
}

void DAQM::HandleTime(const std::string& id, const Json::Value& json) {
  if (!json.isMember("sec")) return;
  const int sec = json["sec"].asInt();
  const int offset = json.get("offset", -1).asInt();
  if (id == "0") {
    _daqm_time = sec;
    if (!IsActive()) SetTimeout(kTick);
  }
  // Module 0's own time has just become ours.
  if (_NeedToSync(sec) || offset != LocalTime(sec).tm_gmtoff) _need_sync = true;
}

void DAQM::HandlePowerOff() {
  if (_device == nullptr || _listener == nullptr) return;
  _SendTo(kDRM, kPowerOffReady);
  _poweroff_countdown = kPowerOffDelay;
}

// --- clients ---

void DAQM::_WriteToClients(const std::string& line) {
  _server.WriteToClients(line);
  for (const auto& client : _server.Clients()) {
    if (client->Queued() <= kMostQueued) continue;
    std::cout << "ERROR: DAQM: Closing a client that doesn't read: " << client->Queued() << " bytes wait" << std::endl;
    client->Close();
  }
}

void DAQM::GotRequest(SocketClient&, const std::string& line) {
  if (_debug) std::cout << "Got DAQM Request: " << line << std::endl;
  if (line.starts_with('{') && ValidateChecksum(line)) HandleNetworkJson(TextOf(line));
  _Write(line);
}

// Of what a tool tells the modules only one thing concerns us.
void DAQM::HandleNetworkJson(const std::string& text) {
  try {
    Json::Value root;
    if (!_reader.parse(text, root, true)) return;
    ForEachMember(root, [this](std::string_view id, const Json::Value& value) {
      if (IsWord(value, "storeconfig")) HandleNetworkStoreConfig(std::string(id));
    });
  } catch (const std::exception& error) {
    TellInvalid(text, error);
  }
}

// What it has configured may have changed the columns. For "all" each module that is known, for the drm nobody; any
// other becomes known.
void DAQM::HandleNetworkStoreConfig(const std::string& id) {
  if (id == kDRM) return;
  if (id != "all") return _WaitingForDataInfo(id);
  for (const std::string& known : _data.Ids()) _WaitingForDataInfo(known);
}

void DAQM::ClientReadClosed(SocketClient& client) {
  client.CloseWhenDone();
}
