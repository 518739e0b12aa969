// An owner of one instrument: it takes what an analyser sends into files on a disk, has them packed when a period ends,
// and keeps the disk from filling up. The station (station/station.h) does so with all instruments, from the same
// parts.
//
// Data lines whose sum fits go to the file as they came; CH4Device decodes them besides, for the listener that may be
// registered here. Nothing lands on the board's own disk when the directory is where a disk is mounted and that is
// taken away (station/disk.h), and what a kill or a power cut has left is finished (station/recordfiles.h).
//
// When no data line has come for five minutes, for want of a connection or on one that stands, the link is built anew.
// It follows an instrument that has got another address, one that lost its power and so never ended the connection, and
// a new start of the Avahi daemon, none of which a link notices by itself.
//
// Thread: the poll loop's.

#pragma once

#include <iostream>
#include <string>
#include <utility>

#include "analyser/ch4device.h"
#include "examples/timer.h"
#include "logging/reclaimer.h"
#include "runtime/datachecksum.h"
#include "station/disk.h"
#include "station/recordfiles.h"

class Recorder : public CH4Device, private PollTimer, private Disk::Listener {
 public:
  struct Settings {
    std::string directory;      // where the disk is mounted, or any other directory
    std::string name = "head";  // what the files' names begin with; no blanks
    int split_seconds = 3'600;  // the length of a file
    int percent = 90;           // of the disk, for all files together
    bool verbose = false;
  };

  explicit Recorder(const Settings& settings)
      : CH4Device(settings.verbose),
        PollTimer(0, true),
        _settings(settings),
        _disk(settings.directory, !Disk(settings.directory, false).IsThere()),
        _files(_disk, settings.name, "", settings.split_seconds),
        _reclaimer(settings.verbose) {
    _disk.RegisterListener(this);
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
  int Lines() const { return static_cast<int>(_files.Written()); }

  void HeadGotLine(std::string line) override {
    if (line.starts_with("DATAH\t")) {
      _files.SetHeader(line);
    } else if (line.starts_with("DATA\t") && CheckSumAgrees(line)) {
      _patience.SetTimeout(kPatience);
      _files.Write(line);
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

  // Once a minute.
  void HandleTimeout() override {
    constexpr int kMinute = 60'000;  // milliseconds
    AddTimeout(kMinute);
    _files.LookAtDisk();
    if (_disk.IsThere()) _reclaimer.Reclaim(_settings.directory, _settings.percent, ".part");
  }
  const char* Description() const override { return "Recorder"; }

  void DiskCame() override { _files.LookAtDisk(); }
  void DiskWent() override {
    std::cout << "Recorder: the disk has gone from " << _settings.directory << std::endl;
    _files.LookAtDisk();
  }

  const Settings _settings;
  int _port = 0;  // of a link without browsing; 0: the link browses
  Timer _patience{-1, [this] { _BuildLink(GetHead().ConnectedTo()); }};
  Disk _disk;
  RecordFiles _files;
  Reclaimer _reclaimer;
};
