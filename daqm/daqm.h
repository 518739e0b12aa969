// The conversation with the data acquisition modules on one serial bus: who is there and what each reports, their
// clocks kept by GPS time, their reports merged into rows for a listener. docs/modules.md tells it as a sequence.
//
// It is also a bridge: every line from the bus goes to all clients of TCP port 50311 (backup traffic excepted), every
// line of a client goes to the bus, right or wrong. Everybody who reaches the port can command the modules. A client
// that lets more than 1 MiB wait is closed. The port is fixed, so there is one session on a machine.
//
// Rows: one goes out when all modules have reported for one second; or before the second report of a module overwrites
// its first, with NaN for the modules that have sent nothing new, and then with the time of the latest report. Such a
// row collects everything: of three modules of which one is silent, one row a second goes out that way. The drm's
// voltages close every row. A listener gets the headers before the first row that they are for. Live rows go out with
// the tick, and keep old values; a change of the voltages' names brings no new live header. All that is meant.
//
// Connect brings the bus up and Disconnect down. What has been learned about the modules is kept, and neither stops the
// tick or the clock. Modules that are known aren't asked again.
//
// Bad lines: one with a wrong checksum, no JSON, or a value of the wrong type is told on standard output and ends
// there, but for the clients. A line that begins with a brace and has fewer than 9 bytes throws std::out_of_range,
// which leaves Poll if it came from the bus and closes the client if it came from one.
//
// Thread: the poll loop's.

#pragma once

#include <jsoncpp/json/reader.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "daqm/daqmdatahandler.h"
#include "daqm/daqmdevice.h"
#include "net/socketserver.h"
#include "runtime/pollprocessor.h"

class DAQM : public DAQMDevice::Listener, public SocketServerListener, public PollTimer {
 public:
  // No value, in rows. Compare its bits; see DAQMDataHandler.
  static constexpr double NaN = DAQMDataHandler::NaN;
  static constexpr int kBridgePort = 50311;

  struct DevInfo {
    std::string device;  // path; empty: no bus
    int gpio;            // number of the power line
  };
  // By port number. A program with a bus elsewhere may change it before Connect.
  static std::vector<DevInfo> port_to_dev;

  // Times are in seconds, by the modules' clocks (Unix time). Names, units and values of a row have the same order and
  // number.
  //
  // Any callback may register another listener, and write to the bus by StartLiveData and so on. None may destroy the
  // DAQM. None but GotDAQMPowerOff and those for live rows may call Connect or Disconnect: a line is being read, and
  // the device would be deleted under its reader; or it has just gone, and the end of the first would take the power
  // off the second. What a callback throws in the course of a line is told as that line's error, but for
  // GotDAQMConnected.
  class Listener {
   public:
    virtual ~Listener() noexcept(false) = default;
    virtual void GotDAQMConnected(unsigned port);
    virtual void GotDAQMSerial(std::string id, std::string serial) = 0;
    virtual void GotDAQMVersion(std::string id, std::string version) = 0;
    virtual void GotDAQMDisconnected() = 0;
    virtual void GotDAQMHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) = 0;
    virtual void GotDAQMData(long time, const std::vector<double>& values) = 0;
    virtual void GotDAQMBackupHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) = 0;
    virtual void GotDAQMBackupData(long time, const std::vector<double>& values) = 0;
    virtual void GotDAQMLiveHeader(const std::vector<std::string>& names, const std::vector<std::string>& units);
    virtual void GotDAQMLiveData(long time, const std::vector<double>& values);
    virtual void GotDAQMReserved() = 0;  // never called
    virtual void GotDAQMPowerOff();
  };

  // Serves the bridge at once; throws what Socket throws, as when another session has the port. Touches no serial line.
  // `debug`: everything is traced on standard output; `tty_debug`: the lines are.
  DAQM(bool debug, bool tty_debug);
  DAQM(const DAQM&) = delete;
  DAQM& operator=(const DAQM&) = delete;
  // Takes the power off the bus and tells nobody. Throws what ~DAQMDevice throws.
  ~DAQM() noexcept(false) override;

  // Not owned, may be null. Returns the one it replaces.
  Listener* RegisterListener(Listener* listener);

  // A port that the table hasn't got counts as 0.
  void Connect(unsigned port);
  // Disconnects, and opens the bus again, unless the port is 0. That takes the power away for a moment.
  //
  // Becomes user 0 meanwhile. Throws what SuperUser and DAQMDevice throw, and in the latter case the effective user
  // stays 0, which is meant: whoever owns the session restores it.
  void Connect();
  void Disconnect();
  // The port has gone: connect again, until it is there.
  bool IsHungUp() const { return _device != nullptr && _device->IsHungUp(); }

  // Live data go on and off for all modules. The listener gets the headers with the first live row.
  void StartLiveData();
  void StopLiveData();

  // Sets the modules' clocks to `seconds`, of Unix time and above 0, with the local zone: when module 0's is more than
  // 3 seconds away, or another module's time or zone has been wrong when it was asked for. For a call at each fix.
  void SyncToGPSTime(long seconds);

  // By blanks; what hasn't come yet is left out. Numbers in the order of their modules, versions sorted and each once.
  std::string SerialNumberList() const;
  std::string VersionNumberList() const;

  void GotDAQMLine(std::string line) override;
  void GotRequest(SocketClient& client, const std::string& line) override;
  // A visit of a tool that has ended costs no descriptor.
  void ClientReadClosed(SocketClient& client) override;
  void HandleTimeout() override;  // the tick, once a second
  const char* Description() const override { return "DAQM"; }

 private:
  using _DataHandler = DAQMDataHandler;
  using _Voltages = std::map<std::string, double>;

  struct _Message {
    std::string_view key;
    const char* tag;  // of the trace
    void (DAQM::*handle)(const std::string& id, const Json::Value& json);
    bool for_clients;
  };
  static const _Message _messages[];

  struct _Rows {
    _DataHandler& data;
    const _Voltages& voltages;
    bool clear;
    void (Listener::*got_header)(const std::vector<std::string>& names, const std::vector<std::string>& units);
    void (Listener::*got_data)(long time, const std::vector<double>& values);
  };

  void _Send(const std::string& body);
  void _SendTo(const std::string& id, const char* query);
  void _Write(const std::string& line);
  void _SendIdentify();
  void _SendHeathlinkReady();
  bool _NeedToSync(long seconds) const;
  void _WaitingForDataInfo(const std::string& id);
  void _HandleChecksumError();
  void _WriteToClients(const std::string& line);

  void _DispatchData(bool force);
  void _DispatchBackupData(bool force);
  void _DispatchLiveData();
  void _DispatchRow(const _Rows& rows);

  bool HandleDAQMJson(const std::string& text);
  bool HandleDAQMObject(const std::string& id, const Json::Value& object);
  void HandleNetworkJson(const std::string& text);
  void HandleNetworkStoreConfig(const std::string& id);
  void HandleIdentify(const std::string& id);
  void HandlePowerOff();
  void HandleData(const std::string& id, const Json::Value& json);
  void HandleBackupData(const std::string& id, const Json::Value& json);
  void HandleLiveData(const std::string& id, const Json::Value& json);
  void HandleDataInfo(const std::string& id, const Json::Value& json);
  void HandleVoltages(const std::string& id, const Json::Value& json);
  void HandleBackupVoltages(const std::string& id, const Json::Value& json);
  void HandleTime(const std::string& id, const Json::Value& json);
  void HandleSerial(const std::string& id, const Json::Value& json);
  void HandleSWVersion(const std::string& id, const Json::Value& json);
  void HandleHeathlinkReadyResponse(const std::string& id, const Json::Value& json);
  static void HandleDRMVoltages(const Json::Value& json, _DataHandler& handler, _Voltages& voltages);

  uint32_t _port = 0;             // of port_to_dev
  DAQMDevice* _device = nullptr;  // owned; deleted plainly, as its destructor may throw
  bool _connected = false;        // a line has come since Connect
  Listener* _listener = nullptr;
  SocketServer _server;
  long _daqm_time = -1;     // module 0's clock, in seconds; below 1: not known
  bool _need_sync = false;  // a module's clock or zone is wrong
  Json::Reader _reader;
  bool _ready_sent = false;
  bool _ready_acked = false;
  const bool _debug;
  const bool _tty_debug;
  bool _drm_seen = false;
  _Voltages _voltages;
  _Voltages _backup_voltages;
  int32_t _voltage_countdown = 0;    // seconds until the next query
  int32_t _identify_countdown = 30;  // seconds
  bool _checksum_error = false;      // since the last identify
  int32_t _poweroff_countdown = 0;   // seconds; 0: none
  _DataHandler _data;
  _DataHandler _live;
  _DataHandler _backup;
  std::map<std::string, std::pair<std::string, std::string>> _devices;  // serial number and version

  // Calls under way, in which the device mustn't change.
  int _in_line = 0;
  int _in_disconnect = 0;
};
