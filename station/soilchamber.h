// The soil chamber: its measurements are looked after (soil/soil.h), and its reports go to the disk
// (station/soilreports.h).
//
// The document names it by an IPv4 address or the name of a host, which is looked up again as long as there is no link.
// One that has been down for five minutes is built anew, not counting those in which the chamber is to be left alone.

#pragma once

#include <optional>
#include <string>
#include <utility>

#include "soil/soil.h"
#include "station/hostlookup.h"
#include "station/instrument.h"
#include "station/settings.h"
#include "station/soilreports.h"

class StationSoil : public Instrument, private Soil::Listener {
 public:
  // The disk outlives this.
  StationSoil(const Settings& settings, const Disk& disk);

  bool IsConnected() const override { return _soil && _soil->GetDevice().GetHead().IsConnected(); }
  void Apply(const ConfigMoorlog& document) override;
  void Look() override;
  void Record(bool on) override { _wanted = on; }

  void LookAtDisk() override { _reports.Write(); }
  std::optional<Kept> WhatIsKept() override { return Kept{"", _reports.Written(), _reports.Lost()}; }

 private:
  // What it has fetched is remembered in the station's own directory.
  class _Agent : public Soil {
   public:
    _Agent(const Settings& settings) : Soil(false, settings.verbose) { _confDirectory = settings.state; }
  };

  void _Build();
  void GotSoilConnected(std::string connectedTo) override;
  void GotSoilReport(long timestamp, std::string report) override;

  const Settings& _settings;
  SoilReports _reports;
  std::string _target, _address;  // wanted; found
  HostLookup _lookup{[this](const std::string& address) {
    if (std::exchange(_address, address) != address) _Build();
  }};
  mutable std::optional<_Agent> _soil;  // asked for its link also where nothing changes
  bool _wanted = true;
  int64_t _alive = 0;  // when it was seen connected last, or left alone, or built; on PollTimer's clock
};
