#include "station/campbell.h"

#include <utility>

namespace {

constexpr int kTableSeconds = 60;
constexpr int kSilent = 30;  // seconds: it is asked every 5

}  // namespace

StationCampbell::StationCampbell(const Settings& settings, const Disk& disk, LinuxClock& clock, const StationGPS& gps)
    : _disk(disk),
      _on_disk(settings.campbell.directory.empty()),
      _gps(gps),
      _files(disk, settings.name, "-campbell", settings.disk.split),
      _pull(clock, _on_disk ? disk.Path() : settings.campbell.directory, settings) {
  _pull.RegisterListener(this);
}

StationCampbell::_Agent::_Agent(LinuxClock& clock, const std::string& rows, const Settings& settings)
    : PullCSI(clock, rows, settings.state, kTableSeconds, settings.verbose, settings.campbell.port) {}

bool StationCampbell::IsConnected() const {
  return !_aimed.empty() && _records.CameWithin(kSilent);
}

void StationCampbell::Apply(const ConfigMoorlog& document) {
  _pull.SetCSITable(document.cfg.logger.loggertable.get());
  const std::string host = document.cfg.logger.loggeraddress.get();
  if (std::exchange(_host, host) == host) return;
  _address.clear();
  _Aim();
  _lookup.Ask(host);
}

void StationCampbell::Look() {
  if (!IsConnected()) _lookup.Ask(_host);
  if (!_gps.Last()) return;
  _pull.SetElevation(_gps.Last()->altitude);
  _pull.SetLatitude(_gps.Last()->latitude);
  _pull.SetLongitude(_gps.Last()->longitude);
}

void StationCampbell::LookAtDisk() {
  Instrument::LookAtDisk();
  _Aim();
}

void StationCampbell::Record(bool on) {
  Instrument::Record(on);
  _wanted = on;
  _Aim();
}

void StationCampbell::_Aim() {
  const std::string host = !_on_disk || (_wanted && _disk.IsThere()) ? _address : "";
  if (std::exchange(_aimed, host) != host) _pull.SetCSIHostname(host);
}

void StationCampbell::GotCSIHeader(std::string line) {
  _files.SetHeader(line);
}

void StationCampbell::GotCSIData(std::string line) {
  _records.Count();
  _files.Write(line);
}
