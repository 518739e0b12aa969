#include "station/soilchamber.h"

#include <unistd.h>

#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <utility>

#include "runtime/filesystem.h"

namespace {

constexpr int64_t kPatience = 300'000'000'000;  // nanoseconds
constexpr size_t kMostWaiting = 1'000;

}  // namespace

StationSoil::StationSoil(const Settings& settings, const Disk& disk) : _settings(settings), _disk(disk) {}

void StationSoil::Apply(const ConfigMoorlog& document) {
  const std::string target = document.cfg.soil.get();
  if (std::exchange(_target, target) == target) return;
  _address.clear();
  _Build();
  _lookup.Ask(target);
}

void StationSoil::Look() {
  if (IsConnected())
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

// One without a moment is called after the present.
void StationSoil::GotSoilReport(long timestamp, std::string report) {
  _records.Count();
  if (!_settings.soil.record || !_wanted) return;
  if (_waiting.size() == kMostWaiting) _waiting.pop_front();
  _waiting.push_back({timestamp > 0 ? static_cast<time_t>(timestamp) : time(nullptr), std::move(report)});
  _WriteWaiting();
}

void StationSoil::_WriteWaiting() {
  for (; _disk.IsThere() && !_waiting.empty(); _waiting.pop_front()) {
    const std::string path = _PathOf(_waiting.front());
    try {
      ReplaceFile(path, _waiting.front().text);
      _told = false;
    } catch (const std::exception& error) {
      unlink((path + ".new").c_str());
      if (!std::exchange(_told, true)) std::cout << "ERROR: a soil report has to wait: " << error.what() << std::endl;
      return;
    }
  }
}

// After the next second that is free, or has this very report.
std::string StationSoil::_PathOf(const _Report& report) const {
  for (time_t moment = report.moment;; ++moment) {
    tm parts = {};
    char name[32];
    gmtime_r(&moment, &parts);
    strftime(name, sizeof name, "-soil-%Y-%m-%dT%H%M%S", &parts);
    std::string path = _disk.Path() + '/' + _settings.name + name + ".txt";
    std::ifstream file(path, std::ios::binary);
    if (!file || std::string(std::istreambuf_iterator<char>(file), {}) == report.text) return path;
  }
}
