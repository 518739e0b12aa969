// The owner that the library leaves to the station: it takes what an analyser sends into files on a disk, has them
// packed when a period ends, and keeps the disk from filling up.
//
// Data lines whose sum fits go to the file as they came; CH4Device decodes them besides, for the listener that may be
// registered here. All that a line's file is named after is the system's clock in UTC.
//
// Nothing lands on the board's own disk when the recorder's is taken away: lines are dropped then, until one is mounted
// there again. Files that a kill or a power cut has left under their working name are finished when the recorder finds
// the disk: renamed to ".txt", so that they are reclaimed like others, or deleted where they are empty.
//
// When no data line has come for five minutes, for want of a connection or on one that stands, the link is built anew.
// It follows an instrument that has got another address, one that lost its power and so never ended the connection, and
// a new start of the Avahi daemon, none of which a link notices by itself.
//
// Thread: the poll loop's.

#pragma once

#include <sys/stat.h>

#include <ctime>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "analyser/ch4device.h"
#include "examples/timer.h"
#include "logging/logger.h"
#include "logging/reclaimer.h"
#include "runtime/datachecksum.h"

class Recorder : public CH4Device, private PollTimer {
 public:
  struct Settings {
    std::string directory;      // where the disk is mounted, or a directory on it
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
    struct stat now {};
    if (stat(settings.directory.c_str(), &now) == 0) _device = now.st_dev;
    _logger.SetHostname(settings.name);
    _SetTime();
    _logger.SetSplitSeconds(settings.split_seconds);
  }

  void ConnectToName(const std::string& service) {
    _port = 0;
    _BuildLink(service);
  }
  void ConnectToAddress(const std::string& host, int port) {
    _port = port;
    _BuildLink(host);
  }

  // That went to a file so far.
  int Lines() const { return _lines; }

  void HeadGotLine(std::string line) override {
    if (line.starts_with("DATAH\t") && line != _columns) {
      _columns = line;
      _logger.SetDATAH(line);
    } else if (line.starts_with("DATA\t") && CheckSumAgrees(line)) {
      _SetTime();
      _patience.SetTimeout(kPatience);
      _logger.WriteDATA(line, _now);
      if (_logger.USBState() == Logger::StateLogging) ++_lines;
    }
    CH4Device::HeadGotLine(std::move(line));
  }

 private:
  static constexpr int kPatience = 300'000;  // milliseconds

  // By name, or without browsing.
  void _BuildLink(const std::string& target) {
    GetHead() = _port > 0 ? Head(this, _port, _settings.verbose) : Head(this, _settings.verbose);
    GetHead().Connect(target);
    _patience.SetTimeout(kPatience);
  }

  // Once a minute. A full disk ends the file, so that the next one finds the room that the reclaimer makes.
  void HandleTimeout() override {
    constexpr int kMinute = 60'000;  // milliseconds
    AddTimeout(kMinute);
    _LookForDisk();
    if (_disk) _reclaimer.Reclaim(_settings.directory, _settings.percent, ".part");
    if (_logger.USBState() == Logger::StateError) _EndFile();
  }
  const char* Description() const override { return "Recorder"; }

  void _EndFile() {
    _logger.StopLogging();
    _logger.StartLogging();
  }

  // So a file never begins where the disk isn't: it begins with a second.
  void _SetTime() {
    const time_t now = time(nullptr);
    if (now == _now) return;
    _now = now;
    _LookForDisk();
    tm parts;
    char date[16], clock[16];
    gmtime_r(&now, &parts);
    strftime(date, sizeof date, "%Y-%m-%d", &parts);
    strftime(clock, sizeof clock, "%H:%M:%S", &parts);
    _logger.SetSeconds(now);
    _logger.SetDateTime(date, clock);
  }

  void _LookForDisk() {
    const bool disk = _IsDiskThere();
    if (disk == _disk) return;
    _disk = disk;
    _logger.SetMountPath(disk ? _settings.directory : "");
    if (disk) {
      _FinishLeftovers();
    } else {
      std::cout << "Recorder: the disk has gone from " << _settings.directory << std::endl;
      _EndFile();
    }
  }

  // The device is the one that it was, or another one is mounted here.
  bool _IsDiskThere() {
    struct stat here {
    }, above{};
    if (stat(_settings.directory.c_str(), &here) != 0) return false;
    const bool mounted = stat((_settings.directory + "/..").c_str(), &above) == 0 && here.st_dev != above.st_dev;
    if (here.st_dev != _device && !mounted) return false;
    _device = here.st_dev;
    return true;
  }

  void _FinishLeftovers() const {
    namespace fs = std::filesystem;
    std::error_code ignored;  // a disk may go at any moment
    std::vector<fs::path> parts;
    for (fs::directory_iterator entry(_settings.directory, ignored), end; entry != end; entry.increment(ignored))
      if (entry->path().native().ends_with(".txt.part")) parts.push_back(entry->path());
    for (const fs::path& part : parts) {
      fs::path text = part;
      text.replace_extension();
      while (fs::exists(text, ignored)) text.replace_filename(text.stem().string() + "-2.txt");
      if (fs::file_size(part, ignored) == 0)
        fs::remove(part, ignored);
      else
        fs::rename(part, text, ignored);
    }
  }

  const Settings _settings;
  int _port = 0;  // of a link without browsing; 0: the link browses
  Timer _patience{-1, [this] { _BuildLink(GetHead().ConnectedTo()); }};
  Logger _logger;
  Reclaimer _reclaimer;
  std::string _columns;  // the last DATAH line
  int _lines = 0;
  time_t _now = 0;     // of the logger's date and time
  bool _disk = false;  // is where it should be
  dev_t _device = 0;   // that it was last seen on
};
