#include "station/modules.h"

#include <jsoncpp/json/value.h>

#include <charconv>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "station/recordfiles.h"
#include "station/rights.h"

namespace {

constexpr int64_t kSecond = 1'000'000'000;  // nanoseconds
constexpr int64_t kPatience = 300 * kSecond, kHour = 3'600 * kSecond;

}  // namespace

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
  if (_port != 0 && (!IsConnected() || _session->IsSilent())) _Connect();
}

// A new session each time: what the modules were called on another port is forgotten.
void StationModules::_Connect() {
  const EffectiveUser user;
  _Disconnect();
  if (_port == 0 || (_settings.modules.record && !(_wanted && _HasRoom()))) return;
  try {
    _session.emplace(_records, _settings.verbose);
    _session->RegisterListener(this);
    _session->Connect(_port);
    _told = false;
  } catch (const std::exception& error) {
    _Disconnect();
    if (!std::exchange(_told, true)) std::cout << "ERROR: the modules can't be had: " << error.what() << std::endl;
  }
}

// The line of the power may have gone.
void StationModules::_Disconnect() {
  if (_session) try {
      _session->Disconnect();
    } catch (const std::exception& error) {
      std::cout << "ERROR: the modules' power: " << error.what() << std::endl;
    }
  _session.reset();
}

bool StationModules::_Session::IsSilent() const {
  return Now() - _heard >= kPatience;
}

void StationModules::_Session::GotDAQMLine(std::string line) try {
  constexpr size_t kDigits = 8;  // and the line feed
  if (line.starts_with('{') && line.size() > kDigits) {
    uint32_t sum = 0;
    const char* const end = line.data() + line.size() - 1;
    std::from_chars(end - kDigits, end, sum, 16);
    if (sum == _CalculateChecksum(_SkipHopCount(line, true)))
      _heard = Now();
    else
      _tally.CountBadSum();
  }
  DAQM::GotDAQMLine(std::move(line));
} catch (const std::exception& error) {
  _tally.CountBadSum();
  if (Now() < _quiet) return;
  _quiet = Now() + kHour;
  std::cout << "ERROR: a line of the modules' bus: " << error.what() << std::endl;
}

void StationModules::LookAtDisk() {
  for (_DayFile* file : {&_rows, &_backup, &_live})
    if (!_disk.IsThere() || file->HasFailed()) file->Close();
}

void StationModules::Record(bool on) {
  _wanted = on;
  if (!on) _EndFiles();
}

void StationModules::_EndFiles() {
  for (_DayFile* file : {&_rows, &_backup, &_live}) file->Close();
}

void StationModules::GotDAQMPowerOff() {
  _EndFiles();
  _power_goes();
}

void StationModules::Live(bool on) {
  if (on && (!IsConnected() || _session->SerialNumberList().empty()))
    throw std::runtime_error("no modules are connected");
  if (_session) on ? _session->StartLiveData() : _session->StopLiveData();
}

void StationModules::Tell(Json::Value& status) const {
  if (_session) status["serialnumbers"] = _session->SerialNumberList();
}

void StationModules::GotFix(long seconds) {
  if (IsConnected()) _session->SyncToGPSTime(seconds);
}

void StationModules::GotDAQMHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) {
  _rows.SetHeader(names, units);
}

void StationModules::GotDAQMData(long time, const std::vector<double>& values) {
  _records.Count();
  _Write(_rows, time, values);
}

void StationModules::GotDAQMBackupHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) {
  _backup.SetHeader(names, units);
}

void StationModules::GotDAQMBackupData(long time, const std::vector<double>& values) {
  _records.Count();
  _Write(_backup, time, values);
}

void StationModules::GotDAQMLiveHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) {
  _live.SetHeader(names, units);
}

void StationModules::GotDAQMLiveData(long time, const std::vector<double>& values) {
  _Write(_live, time, values);
}

void StationModules::_Write(_DayFile& file, long time, const std::vector<double>& values) {
  if (!_settings.modules.record || !_wanted) return;
  ++(_HasRoom() && file.Write(time, values) ? _written : _lost);
}

void StationModules::_DayFile::SetHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) {
  _names = names;
  _units = units;
  _file.SetHeader(names, units);
}

// A header, whichever, ends the file.
void StationModules::_DayFile::Close() {
  const std::string failed = HasFailed() ? File() : "";
  _file.SetHeader(_names, _units);
  if (!failed.empty()) CutBehindLastLine(failed);
}

bool StationModules::_DayFile::Write(long time, const std::vector<double>& values) {
  _file.SetData(time, values);
  _file.LogData();
  return _file.IsWritten();
}
