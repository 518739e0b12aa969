#include "station/analyser.h"

#include <jsoncpp/json/value.h>

#include <iostream>
#include <set>
#include <utility>

#include "runtime/datachecksum.h"
#include "station/hostlookup.h"

namespace {

constexpr int64_t kPatience = 300'000'000'000;  // nanoseconds

}  // namespace

StationAnalyser::StationAnalyser(const Settings& settings, const Disk& disk)
    : CH4Device(settings.verbose),
      _verbose(settings.verbose),
      _port(settings.analyser.port),
      _what(settings.analyser.record == "all"    ? All
            : settings.analyser.record == "some" ? Some
                                                 : None),
      _files(disk, settings.name, "-analyser", settings.disk.split) {
  _columns.ColsToInclude(std::set<std::string>(settings.analyser.columns.begin(), settings.analyser.columns.end()));
  _handler.RegisterListener(this);
}

void StationAnalyser::Apply(const ConfigMoorlog& document) {
  const std::string target = document.cfg.head.get();
  if (std::exchange(_target, target) == target) return;
  _BuildLink();
}

void StationAnalyser::Look() {
  if (!_target.empty() && PollTimer::Now() - _alive >= kPatience) _BuildLink();
}

// What it has told: a document that hasn't come has a number of its own.
void StationAnalyser::Tell(Json::Value& status) const {
  const ConfigurableString& serial = _handler.GetDocument().tn5500.factory.serialnumber;
  if (serial.get_change_count() > 0) status["serialnumber"] = serial.get();
}

void StationAnalyser::_BuildLink() {
  _connected = false;
  _alive = PollTimer::Now();
  GetHead() = HostLookup::IsAddress(_target) ? Head(this, _port, _verbose) : Head(this, _verbose);
  GetHead().Connect(_target);
}

// The whole document is asked for: the copy is to be as the instrument is, whatever was missed.
void StationAnalyser::HeadConnected(std::string connectedTo) {
  _connected = true;
  _alive = PollTimer::Now();
  CH4Device::HeadConnected(connectedTo);
  GetHead().Send("<tarno><tn5500>&query;</tn5500></tarno>\n");
  _handler.DispatchConnected(connectedTo);
}

void StationAnalyser::HeadClosed() {
  if (std::exchange(_connected, false)) _handler.DispatchDisconnected();
}

// Cutting a data line into its columns takes two thirds of what it costs here, and whoever files it whole doesn't need
// them. A document with an address that is none would close the link, and do so again each time.
void StationAnalyser::HeadGotLine(std::string line) {
  _alive = PollTimer::Now();
  if (_what != Some && line.starts_with("DATA\t"))
    return CheckSumAgrees(line) ? DataHandler_GotDATA(std::move(line)) : DataHandler_GotBadChecksum(std::move(line));
  try {
    _handler.DispatchLine(std::move(line));
  } catch (const std::exception& error) {
    std::cout << "ERROR: the analyser has sent what can't be taken: " << error.what() << std::endl;
  }
}

void StationAnalyser::DataHandler_GotDATAH(std::string line) {
  if (_what == All) _files.SetHeader(line);
}

void StationAnalyser::DataHandler_GotDATA(std::string line) {
  _records.Count();
  if (_what == All) _files.Write(line);
}

void StationAnalyser::DataHandler_GotDATAHColumns(std::vector<std::string> columns) {
  if (_what == Some) _files.SetHeader(_columns.ApplyFilterToDATAH(columns));
}

void StationAnalyser::DataHandler_GotDATAColumns(std::vector<std::string> columns) {
  if (_what == Some) _files.Write(_columns.ApplyFilterToDATA(columns));
}

void StationAnalyser::DataHandler_GotBadChecksum(std::string /*line*/) {
  _records.CountBadSum();
}
