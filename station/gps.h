// The GPS receiver and its pulse: position and time. Its seconds and pulses keep the clock; its fixes become records,
// "GPSH" and "GPS", stamped with the board's clock as they come, like those of the anemometer; the last column, UTC, is
// the receiver's moment, in seconds since 1970.

#pragma once

#include <functional>
#include <optional>
#include <string>

#include "serial/gpsdevice.h"
#include "serial/ppsdevice.h"
#include "station/absence.h"
#include "station/instrument.h"
#include "station/pluggeddevice.h"
#include "station/serialport.h"
#include "station/settings.h"
#include "station/stationclock.h"
#include "station/sumcounter.h"

class StationGPS : public Instrument, private GPSDevice::Listener, private PPSDevice::Listener {
 public:
  // Disk and clock outlive this. `fixed` is called with each moment of the receiver, after the clock.
  StationGPS(const Settings& settings, const Disk& disk, StationClock& clock,
             std::function<void(const TimeVal&)> fixed);

  bool IsConnected() const override { return _port.IsOpen(); }
  void Apply(const ConfigMoorlog& document) override;
  void Look() override;
  void Tell(Json::Value& status) const override;
  RecordFiles* Files() override { return &_files; }

  // Of the last fix: degrees, degrees, metres.
  struct Position {
    double latitude, longitude, altitude;
  };
  const std::optional<Position>& Last() const { return _position; }

 private:
  void GotGPSData(const GPSData& data) override;
  void GotGPSTime(const TimeVal& time) override;
  void GotGPSNoFix() override { _fix = false; }
  void GotPPS(const TimeVal& time) override;

  const std::string _path, _pulse_path;
  const bool _verbose, _record;
  StationClock& _clock;
  const std::function<void(const TimeVal&)> _fixed;
  RecordFiles _files;
  int _type = -1;
  SumCounter _sums{'$', '*', _records};
  SerialPort<GPSDevice> _port;
  std::optional<PluggedDevice<PPSDevice>> _pulse;
  Absence _pulse_absence;
  int64_t _heard = 0;   // when a sentence came that is understood, or the port was opened; on PollTimer's clock
  int64_t _pulsed = 0;  // when the last one came, or the device was opened; likewise
  bool _fix = false;
  std::optional<Position> _position;
};
