#include "station/sonic.h"

#include "station/dataline.h"
#include "station/stationclock.h"

StationSonic::StationSonic(const Settings& settings, const Disk& disk)
    : _path(settings.sonic.device),
      _verbose(settings.verbose),
      _record(settings.sonic.record),
      _files(disk, settings.name, "-sonic", settings.disk.split),
      _port([this](std::optional<SonicDevice>& device) {
        device.emplace(_path, 1, _bps, _verbose);
        device->RegisterListener(this);
        _sums.Listen(device->Reader());
      }) {
  _files.SetHeader(DataLineHeader("SONIC", {"U", "V", "W", "SOS", "TEMP", "AUX1", "AUX2", "AUX3", "AUX4"}));
}

void StationSonic::Apply(const ConfigMoorlog& document) {
  const int bps = document.cfg.sonicbaud.get();
  if (std::exchange(_bps, bps) != bps && !_path.empty()) _port.Reopen();
}

void StationSonic::Look() {
  if (!_path.empty()) _port.Look();
}

void StationSonic::GotSonicData(int /*unitNumber*/, const SonicData& data) {
  SonicData stamped = data;
  StationClock::Stamp(stamped);
  _stats.Update(stamped);
  _records.Count();
  if (_record) _files.Write(DataLine("SONIC", stamped));
}
