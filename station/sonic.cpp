#include "station/sonic.h"

#include <jsoncpp/json/value.h>

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

void StationSonic::Tell(Json::Value& status) const {
  constexpr double kPeriod = 10'000;  // milliseconds
  const double mean = _stats.MeanInterval();
  if (mean <= 0 || mean > kPeriod) return;  // the first one is counted from 1970
  Json::Value& interval = status["interval"];
  interval["mean"] = mean;
  interval["range"] = _stats.IntervalRange();
  interval["deviation"] = _stats.IntervalDeviation();
}

void StationSonic::GotSonicData(int /*unitNumber*/, const SonicData& data) {
  SonicData stamped = data;
  StationClock::Stamp(stamped);
  _stats.Update(stamped);
  _records.Count();
  if (_record) _files.Write(DataLine("SONIC", stamped));
}
