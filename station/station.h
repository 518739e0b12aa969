// The station: one object that owns all the parts and wires them. Each concern is a class of its own; what happens when
// stands here.
//
//   each second   the light of the button shows how the recording fares
//   each ten      what can't be had is opened again, what has been silent for too long is built anew
//   each minute   the disk is looked at, and its oldest files go where it is too full
//
// When the modules' bus tells that the power is about to go, all files are finished.
//
// Started, it is at work until it is destroyed, which finishes all files. Nothing here throws for an instrument's sake.
//
// Thread: the poll loop's.

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "config/docmoorlog.h"
#include "logging/reclaimer.h"
#include "serial/linuxclock.h"
#include "station/absence.h"
#include "station/board.h"
#include "station/button.h"
#include "station/controlport.h"
#include "station/disk.h"
#include "station/documentfile.h"
#include "station/errands.h"
#include "station/gps.h"
#include "station/instrument.h"
#include "station/modules.h"
#include "station/settings.h"
#include "station/stationclock.h"

// Where the system keeps its zones: elsewhere in tests.
struct ZonePlaces {
  std::string tree = "/usr/share/zoneinfo", link = "/etc/localtime", file = "/etc/timezone";
};

// What a station has been told and no file keeps, for the one that takes its place.
struct StationOrders {
  bool recording = true;
  std::string ejected;                                             // the path of the disk; empty: it isn't
  std::shared_ptr<Errands> errands = std::make_shared<Errands>();  // what is under way
};

class Station : private Disk::Listener, private PollTimer {
 public:
  // Throws what can't be had and has no way around it: the control port, the zones, the state directory.
  explicit Station(Settings settings, const ZonePlaces& places = {}, const StationOrders& orders = {});
  ~Station() noexcept(false) override;

  int ControlPort() const { return _control.Port(); }

  // To one line of the control port: "status" is answered by a line of JSON; anything else is taken for a document.
  std::string Answer(const std::string& request);
  std::string Status() const;
  StationOrders Orders() const { return {_recording, _disk.IsEjected() ? _disk.Path() : "", _errands}; }

 private:
  // Makes the instrument of a row.
  template <class Kind, class... Parts>
  Kind& _Add(const char* name, int silent, Parts&&... parts);

  std::string _Configure(const std::string& text);
  bool _OfferZones();
  void _Store();
  void _Keep();
  void _Obey(const ConfigCmdMoorlog& commands);
  void _ApplyToInstruments();
  void _Record(bool on);
  void _EachMinute();
  int64_t _Lost() const;
  void _FinishFiles();
  StationButton::Light _Light();

  void DiskCame() override;
  void DiskWent() override;
  void HandleTimeout() override;
  const char* Description() const override { return "Station"; }

  const Settings _settings;
  LinuxClock _linux_clock;
  const std::string _zones;  // of this system, as the document describes them
  StationClock _clock;
  const std::shared_ptr<Errands> _errands;
  Board _board;
  Disk _disk;
  Reclaimer _reclaimer;
  DocumentFile _file;
  DocMoorlog _document;

  std::vector<InstrumentRow> _table;
  StationGPS& _gps;
  StationModules& _modules;
  StationButton& _button;

  class ControlPort _control;
  const int64_t _started;  // on PollTimer's clock
  bool _recording = true;
  bool _stored = false;               // the document
  Absence _unstored;                  // why it isn't
  int64_t _lost = 0, _lost_then = 0;  // lines of all files, a second ago and a minute ago
  int _second = 0;                    // of the minute
};
