// The sonic anemometer: its records, stamped with the board's clock as they come, "SONICH" and "SONIC", and how evenly
// they do.

#pragma once

#include <string>

#include "serial/sonicdevice.h"
#include "serial/sonicstats.h"
#include "station/instrument.h"
#include "station/serialport.h"
#include "station/settings.h"
#include "station/sumcounter.h"

class StationSonic : public Instrument, private SonicDeviceListener {
 public:
  // The disk outlives this.
  StationSonic(const Settings& settings, const Disk& disk);

  bool IsConnected() const override { return _port.IsOpen(); }
  void Apply(const ConfigMoorlog& document) override;
  void Look() override;
  void Tell(Json::Value& status) const override;
  RecordFiles* Files() override { return &_files; }

 private:
  void GotSonicData(int unitNumber, const SonicData& data) override;

  const std::string _path;
  const bool _verbose, _record;
  RecordFiles _files;
  int _bps = -1;
  SumCounter _sums{'\x02', '\x03', _records};
  SerialPort<SonicDevice> _port;
  SonicStats _stats;
};
