// The logger's agent for one soil chamber: stops, sets, tidies and starts the instrument once a day, fetches each
// observation that it completes as a report, and remembers in a small file how far it has come.
//
// While the link stands the instrument's state is asked for every 10 minutes, first after 30 s. At the first of these
// steps on another day of the month the measurement is stopped; 15 s later the clock is set, the measurement is named
// after this host, old files are deleted, and it is started again. A measurement of another name has the same sequence
// begun at once. Days are compared by their number in the month: 31 January and 31 March are the same, which is meant.
//
// Observations: what is asked for is remembered as fetched, so a report that is lost with its connection is not asked
// for again. That is meant too. At most the last 10,000 observations of a measurement are asked for in one go.
//
// What was queued and not sent when the link went down goes out first on the next connection (analyser/head.h).
//
// Thread: the poll loop's. A callback may do anything with the device and its link, and may register another listener;
// it must not destroy the Soil. What it throws passes to the link, which closes.

#pragma once

#include <jsoncpp/json/forwards.h>

#include <cstdint>
#include <ctime>
#include <set>
#include <string>
#include <vector>

#include "runtime/pollprocessor.h"
#include "soil/soildevice.h"

class Soil : public SoilDevice::Listener, public PollTimer {
 public:
  class Listener {
   public:
    virtual ~Listener() noexcept(false) = default;
    virtual void GotSoilConnected(std::string connectedTo);
    virtual void GotSoilData(SoilData& data);
    // The report as text, tab-separated with lines of headings; `timestamp`: Unix time of its first data line, of the
    // instrument's clock in this host's zone; 0 when it can't be told.
    virtual void GotSoilReport(long timestamp, std::string report);
    // After an error that tells of an interruption the link is down for 10 minutes.
    virtual void GotSoilError(std::string error);
  };

  // `trace`: requests for observations go to standard output. `verbose`: all that is sent and received does. Connects
  // to nothing.
  Soil(bool trace, bool verbose);

  // Not owned, may be null. Returns the one it replaces.
  Listener* RegisterListener(Listener* listener);

  // The address or host name to go back to after an interruption; connects to nothing.
  void SetTarget(const std::string& target) { _target = target; }
  // SetTarget, and connects the link.
  void Connect(const std::string& target);
  SoilDevice& GetDevice() { return _device; }
  // Whether the link is down after an interruption, and connects by itself when that is over.
  bool IsHoldingOff() const { return _holdoff.IsActive(); }

  void GotSoilConnected(std::string connectedTo) override;
  void GotSoilClosed() override;
  void GotSoilData(SoilData& data) override;
  void GotSoilInfo(SoilData& data) override;
  void GotSoilStatus(SoilData& data) override;
  void GotSoilMeasurement(SoilData& data) override;
  void GotSoilIntFileList(const std::vector<SoilDevice::FileInfo>& files) override;
  void GotSoilExtFileList(const std::vector<SoilDevice::FileInfo>& files) override;
  void GotSoilReport(std::string report) override;
  void GotSoilError(std::string error) override;

  void HandleTimeout() override;
  const char* Description() const override { return "Soil"; }

 protected:
  // Where the observation file, "Soil.conf", lives; made when it is missing, one level. The file is a JSON object: for
  // each of the instrument's data files {"obs": the number of the last observation that was asked for}. What isn't of
  // that form counts as 0.
  std::string _confDirectory = "/home/tarno/.config";

 private:
  class _HoldoffTimer : public PollTimer {
   public:
    explicit _HoldoffTimer(Soil& soil) : PollTimer(-1, true), _soil(soil) {}
    void HandleTimeout() override;

   private:
    Soil& _soil;
  };

  void _Send(const std::string& command);
  void _QueryMeasurement();
  void _TriggerDailySync();
  void _DailySync(const std::string& date, const std::string& time);
  void _CopyAndDeleteOldFiles();
  std::string _FileOf(const std::string& name, const std::string& location) const;
  static long _ExtractReportTimestamp(const std::string& report);
  std::string _ConfPath() const { return _confDirectory + "/Soil.conf"; }
  void _SaveConf(const Json::Value& conf) const;
  int32_t _LoadObs(const std::string& file) const;
  void _SaveObs(const std::string& file, int32_t observation) const;

  std::string _target;
  SoilDevice _device;
  Listener* _listener = nullptr;
  const std::string _hostName;  // names the measurement
  int _curOb = 0;               // the observation that is running or has ended last
  int _obComplete = 0;          // percent of it
  std::set<std::string> _intFiles;
  std::set<std::string> _extFiles;
  time_t _lastPoll = 0;  // of the wall clock; 0: never
  bool _syncPending = false;
  const bool _trace;
  _HoldoffTimer _holdoff{*this};
};
