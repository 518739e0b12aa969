// The data acquisition modules on their bus: rows become day files, those that the modules had kept go into day files
// of their own, and so do live rows. Tools reach the modules through the session's bridge (daqm/daqm.h).
//
//   2024-05-01-000004-modules.txt      2024-05-01-101500-backup.txt      2024-05-01-101730-live.txt
//
// The document says which port they are on. Powering the bus takes root's rights; without them the modules stay off.
//
// The bus is opened only while rows can be written: as soon as the drm finds this side ready it hands out what it has
// kept, and hands it out once. When the disk goes later the bus stays open all the same, and the rows are counted as
// lost: closing it would take the modules' power, and what they don't measure nobody keeps. A bus on which nothing
// right has come for five minutes is closed and opened again: who hasn't heard the one question at its beginning is
// never asked again.

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "daqm/daqm.h"
#include "logging/daqmlogfile.h"
#include "station/instrument.h"
#include "station/settings.h"

class StationModules : public Instrument, private DAQM::Listener {
 public:
  // The disk outlives this. `power_goes` is called when the bus has told so.
  StationModules(const Settings& settings, const Disk& disk, std::function<void()> power_goes);
  ~StationModules() noexcept(false) override { _Disconnect(); }

  bool IsConnected() const override { return _session && !_session->IsHungUp(); }
  void Apply(const ConfigMoorlog& document) override;
  void Look() override;
  void LookAtDisk() override;
  void Record(bool on) override;
  std::optional<Kept> WhatIsKept() override { return Kept{_rows.File(), _written, _lost}; }
  void Tell(Json::Value& status) const override;

  // Throws std::runtime_error where there is no module that could be switched on.
  void Live(bool on);
  void GotFix(long seconds);  // of the GPS, since 1970

 private:
  static constexpr uint64_t kRoom = 65'536;  // bytes

  // Counts the lines whose sum is wrong, which the session tells in words only, and bears those that are too short to
  // have one.
  class _Session : public DAQM {
   public:
    _Session(Tally& tally, bool verbose) : DAQM(verbose, false), _tally(tally) {}
    void GotDAQMLine(std::string line) override;
    bool IsSilent() const;

   private:
    Tally& _tally;
    // On PollTimer's clock.
    int64_t _heard = Now();  // a right line, or the beginning
    int64_t _quiet = 0;      // no word about short lines until then
  };

  class _DayFile {
   public:
    _DayFile(const std::string& directory, const std::string& suffix) : _file(directory, suffix, "DAQM") {}
    void SetHeader(const std::vector<std::string>& names, const std::vector<std::string>& units);
    void Close();
    bool Write(long time, const std::vector<double>& values);
    std::string File() const { return _file.File(); }
    bool HasFailed() const { return !File().empty() && !_file.IsWritten(); }

   private:
    DAQMLogFile _file;
    std::vector<std::string> _names, _units;
  };

  void _Connect();
  void _Disconnect();
  void _EndFiles();
  // On a disk without room a row would be cut.
  bool _HasRoom() const { return _disk.IsStillThere() && _disk.Available() >= kRoom; }
  void _Write(_DayFile& file, long time, const std::vector<double>& values);

  void GotDAQMSerial(std::string /*id*/, std::string /*serial*/) override {}
  void GotDAQMVersion(std::string /*id*/, std::string /*version*/) override {}
  void GotDAQMDisconnected() override {}
  void GotDAQMHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) override;
  void GotDAQMData(long time, const std::vector<double>& values) override;
  void GotDAQMBackupHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) override;
  void GotDAQMBackupData(long time, const std::vector<double>& values) override;
  void GotDAQMLiveHeader(const std::vector<std::string>& names, const std::vector<std::string>& units) override;
  void GotDAQMLiveData(long time, const std::vector<double>& values) override;
  void GotDAQMReserved() override {}
  void GotDAQMPowerOff() override;

  const Settings& _settings;
  const Disk& _disk;
  const std::function<void()> _power_goes;
  _DayFile _rows, _backup, _live;
  unsigned _port = 0;
  bool _wanted = true;
  bool _told = false;               // why they can't be had
  int64_t _written = 0, _lost = 0;  // rows
  std::optional<_Session> _session;
};
