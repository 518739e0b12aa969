#include "station/gps.h"

#include <jsoncpp/json/value.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "station/dataline.h"

namespace {

// A pulse device that says nothing may have gone without a sign.
constexpr int64_t kPulsePatience = 10'000'000'000;  // nanoseconds

// Longer than a search takes: a receiver that gets its power later speaks at another rate, or waits to be set up.
constexpr int64_t kPatience = 60'000'000'000;

}  // namespace

StationGPS::StationGPS(const Settings& settings, const Disk& disk, StationClock& clock,
                       std::function<void(const TimeVal&)> fixed)
    : _path(settings.gps.device),
      _pulse_path(settings.gps.pulse),
      _verbose(settings.verbose),
      _record(settings.gps.record),
      _clock(clock),
      _fixed(std::move(fixed)),
      _files(disk, settings.name, "-gps", settings.disk.split),
      _port([this](std::optional<GPSDevice>& device) {
        device.emplace(_path, _type, _verbose, false);
        device->RegisterListener(this);
        _sums.Listen(device->Reader());
        _heard = PollTimer::Now();
      }) {
  _files.SetHeader(DataLineHeader("GPS", {"LATITUDE", "LONGITUDE", "ALTITUDE", "SATELLITES", "HDOP", "GEOID", "SPEED",
                                          "COURSE", "DIFFAGE", "DIFFSTATION", "UTC"}));
}

// Another type is searched for from the beginning.
void StationGPS::Apply(const ConfigMoorlog& document) {
  const int type = document.cfg.gpstype.get();
  if (std::exchange(_type, type) != type && !_path.empty()) _port.Reopen();
}

void StationGPS::Look() {
  if (_path.empty()) return;
  const int64_t now = PollTimer::Now();
  if (_port.IsOpen() && now - _heard >= kPatience)
    _port.Reopen();
  else
    _port.Look();
  if (!_port.IsOpen()) _fix = false;
  if (_pulse_path.empty()) return;
  if (_pulse && !_pulse->HasGone() && now - _pulsed < kPulsePatience) return;
  _pulse.reset();
  try {
    _pulse.emplace(_pulse_path, _verbose);
    _pulse->RegisterListener(this);
    _pulsed = now;
    _pulse_absence.Over();
  } catch (const std::runtime_error& error) {  // still away
    _pulse_absence.Tell(error);
  }
}

void StationGPS::Tell(Json::Value& status) const {
  status["fix"] = _fix;
}

void StationGPS::GotGPSData(const GPSData& data) {
  _heard = PollTimer::Now();
  if (!_fix) return;  // it comes as zeros then
  _records.Count();
  _position = {data.values[0], data.values[1], data.values[2]};
  if (!_record) return;
  MeasurementRecord<std::tuple_size_v<decltype(data.values)> + 1> line;
  std::copy(data.values.begin(), data.values.end(), line.values.begin());
  line.values.back() = data.seconds + data.nanoseconds / 1e9;
  StationClock::Stamp(line);
  line.errorFlags = data.errorFlags;
  _files.Write(DataLine("GPS", line));
}

void StationGPS::GotGPSTime(const TimeVal& time) {
  _fix = true;
  _clock.GotFix(time);
  _fixed(time);
}

void StationGPS::GotPPS(const TimeVal& time) {
  _pulsed = PollTimer::Now();
  _clock.GotPulse(time);
}
