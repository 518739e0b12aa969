// The Campbell logger: its live values become records, its table rows files for the upload, its clock and position
// follow ours (csi/pullcsi.h). The document names it by an IPv4 address or the name of a host, which is looked up again
// as long as nothing comes. While the rows can't go to the disk, or aren't to, nothing is asked: they wait at the
// logger, as far as it keeps them.

#pragma once

#include <string>

#include "csi/pullcsi.h"
#include "station/gps.h"
#include "station/hostlookup.h"
#include "station/instrument.h"
#include "station/settings.h"

class StationCampbell : public Instrument, private PullCSI::Listener {
 public:
  // All but the settings outlive this.
  StationCampbell(const Settings& settings, const Disk& disk, LinuxClock& clock, const StationGPS& gps);

  bool IsConnected() const override;
  void Apply(const ConfigMoorlog& document) override;
  void Look() override;
  void LookAtDisk() override;
  void Record(bool on) override;
  RecordFiles* Files() override { return &_files; }

 private:
  // On the port of the settings.
  class _Agent : public PullCSI {
   public:
    _Agent(LinuxClock& clock, const std::string& rows, const Settings& settings);
  };

  void _Aim();
  void GotCSIHeader(std::string line) override;
  void GotCSIData(std::string line) override;

  const Disk& _disk;
  const bool _on_disk;  // is where the rows go
  const StationGPS& _gps;
  RecordFiles _files;
  bool _wanted = true;
  std::string _host, _address, _aimed;  // wanted; found; asked
  HostLookup _lookup{[this](const std::string& address) {
    _address = address;
    _Aim();
  }};
  _Agent _pull;
};
