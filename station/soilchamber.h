// The soil chamber: its measurements are looked after (soil/soil.h), and each of its reports becomes a file of its own.
//
// The document names it by an IPv4 address or the name of a host. A link that has been down for five minutes is built
// anew.

#pragma once

#include <optional>
#include <string>

#include "soil/soil.h"
#include "station/instrument.h"
#include "station/settings.h"

class StationSoil : public Instrument, private Soil::Listener {
 public:
  // The disk outlives this.
  StationSoil(const Settings& settings, const Disk& disk);

  bool IsConnected() const override { return _soil && _soil->GetDevice().GetHead().IsConnected(); }
  void Apply(const ConfigMoorlog& document) override;
  void Look() override;
  void Record(bool on) override { _wanted = on; }

  int64_t Lost() const { return _lost; }  // reports that found no disk

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
  const Disk& _disk;
  std::string _target;
  mutable std::optional<_Agent> _soil;  // asked for its link also where nothing changes
  bool _wanted = true;
  int64_t _alive = 0;  // when it was seen connected last, or built; on PollTimer's clock
  int64_t _lost = 0;
};
