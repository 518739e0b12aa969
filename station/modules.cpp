#include "station/modules.h"

#include <charconv>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "station/rights.h"

StationModules::StationModules(const Settings& settings, const Disk& disk, std::function<void()> power_goes)
    : _settings(settings),
      _disk(disk),
      _power_goes(std::move(power_goes)),
      _rows(disk.Path(), "-modules.txt"),
      _backup(disk.Path(), "-backup.txt"),
      _live(disk.Path(), "-live.txt") {}

void StationModules::Apply(const ConfigMoorlog& document) {
  const auto port = static_cast<unsigned>(document.cfg.daqm.port.get());
  if (std::exchange(_port, port) == port) return;
  _told = false;
  _Connect();
}

void StationModules::Look() {
  if (_port != 0 && !IsConnected()) _Connect();
}

// A new session each time: what the modules were called on another port is forgotten.
void StationModules::_Connect() {
  const EffectiveUser user;
  try {
    _session.reset();
    if (_port == 0) return;
    _session.emplace(_records, _settings.verbose);
    _session->RegisterListener(this);
    _session->Connect(_port);
    _told = false;
  } catch (const std::exception& error) {
    _session.reset();
    if (!std::exchange(_told, true)) std::cout << "ERROR: the modules can't be had: " << error.what() << std::endl;
  }
}

void StationModules::_Session::GotDAQMLine(std::string line) {
  constexpr size_t kDigits = 8;  // and the line feed
  if (line.starts_with('{') && line.size() > kDigits) {
    uint32_t sum = 0;
    const char* const end = line.data() + line.size() - 1;
    std::from_chars(end - kDigits, end, sum, 16);
    if (sum != _CalculateChecksum(_SkipHopCount(line, true))) _tally.CountBadSum();
  }
  DAQM::GotDAQMLine(std::move(line));
}

void StationModules::LookAtDisk() {
  if (!_disk.IsThere()) _EndFiles();
}

void StationModules::_EndFiles() {
  for (_DayFile* file : {&_rows, &_backup, &_live}) file->Close();
}

void StationModules::GotDAQMPowerOff() {
  _EndFiles();
  _power_goes();
}

void StationModules::Live(bool on) {
  if (on && (!IsConnected() || SerialNumbers().empty())) throw std::runtime_error("no modules are connected");
  if (_session) on ? _session->StartLiveData() : _session->StopLiveData();
}

void StationModules::GotFix(long seconds) {
  if (IsConnected()) _session->SyncToGPSTime(seconds);
}

void StationModules::GotDAQMHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) {
  _rows.SetHeader(names, units);
}

void StationModules::GotDAQMData(long time, const std::vector<double>& values) {
  _records.Count();
  if (_MayWrite()) _rows.Write(time, values);
}

void StationModules::GotDAQMBackupHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) {
  _backup.SetHeader(names, units);
}

void StationModules::GotDAQMBackupData(long time, const std::vector<double>& values) {
  _records.Count();
  if (_MayWrite()) _backup.Write(time, values);
}

void StationModules::GotDAQMLiveHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) {
  _live.SetHeader(names, units);
}

void StationModules::GotDAQMLiveData(long time, const std::vector<double>& values) {
  if (_MayWrite()) _live.Write(time, values);
}

void StationModules::_DayFile::SetHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) {
  _names = names;
  _units = units;
  _file.SetHeader(names, units);
}

void StationModules::_DayFile::Write(long time, const std::vector<double>& values) {
  _file.SetData(time, values);
  _file.LogData();
}
