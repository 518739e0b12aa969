#include "station/soilchamber.h"

#include <unistd.h>

#include <ctime>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "runtime/filesystem.h"

namespace {

constexpr int64_t kPatience = 300'000'000'000;  // nanoseconds

}  // namespace

StationSoil::StationSoil(const Settings& settings, const Disk& disk) : _settings(settings), _disk(disk) {}

void StationSoil::Apply(const ConfigMoorlog& document) {
  const std::string target = document.cfg.soil.get();
  if (std::exchange(_target, target) != target) _Build();
}

void StationSoil::Look() {
  if (_target.empty()) return;
  if (IsConnected()) _alive = PollTimer::Now();
  if (PollTimer::Now() - _alive >= kPatience) _Build();
}

void StationSoil::_Build() {
  _soil.reset();
  if (_target.empty()) return;
  _alive = PollTimer::Now();
  _soil.emplace(_settings);
  _soil->RegisterListener(this);
  _soil->Connect(_target);
}

void StationSoil::GotSoilConnected(std::string /*connectedTo*/) {
  _alive = PollTimer::Now();
}

// Under its working name until it is whole. One without a moment is called after the present.
void StationSoil::GotSoilReport(long timestamp, std::string report) {
  _records.Count();
  if (!_settings.soil.record || !_wanted) return;
  const time_t moment = timestamp > 0 ? static_cast<time_t>(timestamp) : time(nullptr);
  tm parts;
  char name[32];
  gmtime_r(&moment, &parts);
  strftime(name, sizeof name, "-soil-%Y-%m-%dT%H%M%S", &parts);
  const std::string path = _disk.Path() + '/' + _settings.name + name + ".txt";
  try {
    if (!_disk.IsThere()) throw std::runtime_error("the disk isn't there");
    {
      std::ofstream file(path + ".part", std::ios::binary | std::ios::trunc);
      if (!(file << report << std::flush)) throw std::runtime_error("it can't be written");
    }
    RenameFile(path + ".part", path);
  } catch (const std::exception& error) {
    ++_lost;
    unlink((path + ".part").c_str());
    std::cout << "ERROR: a soil report is lost, " << path << ": " << error.what() << std::endl;
  }
}
