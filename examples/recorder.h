// The owner that the library leaves to the station: it takes what an analyser sends into files on a disk, has them
// packed when a period ends, and keeps the disk from filling up.
//
// Data lines whose sum fits go to the file as they came; CH4Device decodes them besides, for the listener that may be
// registered here. All that a line's file is named after is the system's clock in UTC.
//
// Thread: the poll loop's.

#pragma once

#include <ctime>
#include <string>
#include <utility>

#include "analyser/ch4device.h"
#include "logging/logger.h"
#include "logging/reclaimer.h"
#include "runtime/datachecksum.h"

class Recorder : public CH4Device, private PollTimer {
 public:
  struct Settings {
    std::string directory;      // of the mounted disk
    std::string name = "head";  // what the files' names begin with; no blanks
    int split_seconds = 3'600;  // the length of a file
    int percent = 90;           // of the disk, for all files together
    bool verbose = false;
  };

  explicit Recorder(const Settings& settings)
      : CH4Device(settings.verbose),
        PollTimer(0, true),
        _settings(settings),
        _logger("", "UTC", false),
        _reclaimer(settings.verbose) {
    _logger.SetMountPath(settings.directory);
    _logger.SetHostname(settings.name);
    _SetTime();
    _logger.SetSplitSeconds(settings.split_seconds);
  }

  void ConnectToName(const std::string& service) { GetHead().Connect(service); }
  // A link that doesn't browse takes the place of the one that does.
  void ConnectToAddress(const std::string& host, int port) {
    GetHead() = Head(this, port, _settings.verbose);
    GetHead().Connect(host);
  }

  // That went to a file so far.
  int Lines() const { return _lines; }

  void HeadGotLine(std::string line) override {
    if (line.starts_with("DATAH\t") && line != _columns) {
      _columns = line;
      _logger.SetDATAH(line);
    } else if (line.starts_with("DATA\t") && CheckSumAgrees(line)) {
      _SetTime();
      _logger.WriteDATA(line, _now);
      if (_logger.USBState() == kLogging) ++_lines;
    }
    CH4Device::HeadGotLine(std::move(line));
  }

 private:
  enum { kLogging = 1, kError = 3 };  // as the logger tells its state

  // Once a minute. A full disk ends the file, so that the next one finds the room that the reclaimer makes.
  void HandleTimeout() override {
    constexpr int kMinute = 60'000;  // milliseconds
    AddTimeout(kMinute);
    _reclaimer.Reclaim(_settings.directory, _settings.percent, ".part");
    if (_logger.USBState() != kError) return;
    _logger.StopLogging();
    _logger.StartLogging();
  }
  const char* Description() const override { return "Recorder"; }

  void _SetTime() {
    const time_t now = time(nullptr);
    if (now == _now) return;
    _now = now;
    tm parts;
    char date[16], clock[16];
    gmtime_r(&now, &parts);
    strftime(date, sizeof date, "%Y-%m-%d", &parts);
    strftime(clock, sizeof clock, "%H:%M:%S", &parts);
    _logger.SetSeconds(now);
    _logger.SetDateTime(date, clock);
  }

  const Settings _settings;
  Logger _logger;
  Reclaimer _reclaimer;
  std::string _columns;  // the last DATAH line
  int _lines = 0;
  time_t _now = 0;  // of the logger's date and time
};
