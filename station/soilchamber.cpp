#include "station/soilchamber.h"

#include <utility>

namespace {

constexpr int64_t kPatience = 300'000'000'000;  // nanoseconds

}  // namespace

StationSoil::StationSoil(const Settings& settings, const Disk& disk)
    : _settings(settings), _reports(disk, settings.name, settings.state) {}

void StationSoil::Apply(const ConfigMoorlog& document) {
  const std::string target = document.cfg.soil.get();
  if (std::exchange(_target, target) == target) return;
  _address.clear();
  _Build();
  _lookup.Ask(target);
}

void StationSoil::Look() {
  if (IsConnected() || (_soil && _soil->IsHoldingOff()))
    _alive = PollTimer::Now();
  else
    _lookup.Ask(_target);
  if (PollTimer::Now() - _alive >= kPatience) _Build();
}

void StationSoil::_Build() {
  _soil.reset();
  if (_address.empty()) return;
  _alive = PollTimer::Now();
  _soil.emplace(_settings);
  _soil->RegisterListener(this);
  _soil->Connect(_address);
}

void StationSoil::GotSoilConnected(std::string /*connectedTo*/) {
  _alive = PollTimer::Now();
}

void StationSoil::GotSoilReport(long timestamp, std::string report) {
  _records.Count();
  if (_settings.soil.record && _wanted) _reports.Add(timestamp, std::move(report));
}
