#include "station/station.h"

#include <fcntl.h>
#include <jsoncpp/json/writer.h>
#include <unistd.h>

#include <ctime>
#include <fstream>
#include <iostream>
#include <sstream>
#include <utility>

#include "runtime/errnoexcept.h"
#include "runtime/filesystem.h"
#include "station/analyser.h"
#include "station/campbell.h"
#include "station/soilchamber.h"
#include "station/sonic.h"

namespace {

constexpr int kSecond = 1'000;  // milliseconds

std::string Checked(const std::string& directory) {
  MkDirectory(directory);
  if (faccessat(AT_FDCWD, directory.c_str(), R_OK | W_OK | X_OK, AT_EACCESS) != 0)
    ThrowErrno("Unable to write to: ", directory);
  return directory;
}

std::string Joined(const std::vector<std::string>& zones) {
  std::string text;
  for (const std::string& zone : zones) text += (text.empty() ? "" : "|") + zone;
  return text;
}

// No more than waits for a tool: a short request may ask for the document over and over.
class BoundedText : public std::streambuf {
 public:
  std::string text;

 protected:
  std::streamsize xsputn(const char* data, std::streamsize size) override {
    if (text.size() + static_cast<size_t>(size) > ControlPort::kLongestQueue)
      throw std::runtime_error("the answer would be too long");
    text.append(data, static_cast<size_t>(size));
    return size;
  }
  int_type overflow(int_type c) override {
    const char data = traits_type::to_char_type(c);
    return xsputn(&data, 1), c;
  }
};

// Resident bytes of this process (proc(5)).
Json::Int64 Memory() {
  std::ifstream file("/proc/self/statm");
  Json::Int64 ignored = 0, pages = 0;
  file >> ignored >> pages;
  return pages * getpagesize();
}

}  // namespace

template <class Kind, class... Parts>
Kind& Station::_Add(const char* name, int silent, Parts&&... parts) {
  auto made = std::make_unique<Kind>(std::forward<Parts>(parts)...);
  Kind& instrument = *made;
  _table.push_back({name, silent, std::move(made)});
  return instrument;
}

Station::Station(Settings settings, const ZonePlaces& places, const StationOrders& orders)
    : PollTimer(kSecond, true),
      _settings(std::move(settings)),
      _linux_clock(places.tree, places.link, places.file, _settings.clock.rtc),
      _zones(Joined(_linux_clock.Zones())),
      _clock(_linux_clock, _settings.clock.mode == "watch", {_settings.clock.proportional, _settings.clock.integral}),
      _errands(orders.errands),
      _board(_linux_clock, *_errands),
      _disk(_settings.disk.path, _settings.disk.board, orders.ejected == _settings.disk.path),
      _reclaimer(_settings.verbose),
      _file(Checked(_settings.state) + "/moorlog.xml"),
      _gps(_Add<StationGPS>("gps", 10, _settings, _disk, _clock,
                            [this](const TimeVal& time) { _modules.GotFix(time.seconds); })),
      _modules(_Add<StationModules>("modules", 60, _settings, _disk, [this] { _FinishFiles(); })),
      _button(_Add<StationButton>(
          "button", 0, _settings, [this] { _Record(!_recording); },
          [this] {
            _disk.Eject();
            _disk.Sync();
          })),
      _control(_settings.control.port, _settings.control.interface,
               [this](const std::string& request) { return Answer(request); }),
      _started(PollTimer::Now()) {
  _Add<StationAnalyser>("analyser", 10, _settings, _disk);
  _Add<StationSonic>("sonic", 10, _settings, _disk);
  _Add<StationSoil>("soil", 90'000, _settings, _disk);
  _Add<StationCampbell>("campbell", 30, _settings, _disk, _linux_clock, _gps);

  _OfferZones();
  _file.Load(_document);
  _OfferZones();
  _document.moorlog.ver.set(MOORLOG_VERSION);
  _document.moorlog.cfg.clock.zone.set_str(_linux_clock.CurrentZone());
  for (const std::string& error : _board.Start(_document.moorlog)) std::cout << "ERROR: " << error << std::endl;
  _document._set_changed(false);

  _disk.RegisterListener(this);
  if (!orders.recording) _Record(false);
  _ApplyToInstruments();
  ForEach(_table, [](Instrument& each) { each.Look(); });
  _EachMinute();
}

// The end is to come soon, however many files the disk has.
Station::~Station() noexcept(false) {
  _reclaimer.Abandon();
}

std::string Station::Answer(const std::string& request) {
  return request == "status" ? Status() : _Configure(request);
}

// The zones of this system are the choices of the document, and of each other one in the process: a description of the
// zones in any of them would put others in their place. False: they were these.
bool Station::_OfferZones() {
  ConfigTimezone& zone = _document.moorlog.cfg.clock.zone;
  std::ostringstream offered, ignored;
  zone.write_doctype(offered);
  if (offered.str() == _zones) return false;
  std::istringstream choices(_zones);
  zone.read_doctype(choices, ignored);
  return true;
}

// What was taken before something is refused counts. A bad address leaves the reading by an exception.
std::string Station::_Configure(const std::string& text) {
  if (text.find('<') == std::string::npos) throw std::runtime_error("neither a document nor \"status\"");
  std::istringstream in(text);
  BoundedText answer;
  std::ostream out(&answer);
  out.exceptions(std::ios::badbit);  // so that what the text throws gets here
  Configurable::set_compact(out, true);
  std::vector<std::string> errors;
  const auto attempt = [&](const auto& deed) {
    try {
      deed();
    } catch (const std::exception& error) {
      errors.emplace_back(error.what());
    }
  };
  _OfferZones();  // the analyser's document may have described others
  ConfigMoorlog& moorlog = _document.moorlog;
  ConfigTimezone& zone = moorlog.cfg.clock.zone;
  moorlog.cfg.clock.TimeDate(static_cast<long>(_linux_clock.TimeT()));
  _document._set_changed(false);
  DocMoorlog before;
  Copy(_document, before);
  const int chosen = zone.get();
  attempt([&] { _document.configure_and_send_events(in, out); });
  if (out.bad()) answer.text.clear();
  out.clear();
  if (_OfferZones()) {
    zone.set(chosen);
    zone._set_changed(false);
    errors.emplace_back("zone: the choices are this system's own");
  }
  const bool is_answered = in.fail() || !answer.text.empty();
  for (std::string& error : _board.Apply(moorlog, before.moorlog)) errors.push_back(std::move(error));
  _ApplyToInstruments();
  _stored = false;
  attempt([&] { _Store(); });
  attempt([&] { _Obey(moorlog.cmd); });
  attempt([&] {
    if (moorlog.cmd.reboot.get()) _board.Reboot();
  });
  _document._set_changed(false);
  for (const std::string& error : errors) _document.Error(out, error);
  if (errors.empty() && !is_answered) _document.Ack(out);
  std::erase(answer.text, '\n');
  return std::move(answer.text);
}

void Station::_Obey(const ConfigCmdMoorlog& commands) {
  if (commands.logusbstart.get()) {
    _disk.Use();
    _Record(true);
  }
  if (commands.logusbstop.get()) _Record(false);
  if (commands.ejectusb.get()) _disk.Eject();
  if (commands.startdaqmlivemeasure.get()) _modules.Live(true);
  if (commands.stopdaqmlivemeasure.get()) _modules.Live(false);
}

void Station::_ApplyToInstruments() {
  ForEach(_table, [this](Instrument& each) { each.Apply(_document.moorlog); });
}

void Station::_Record(bool on) {
  _recording = on;
  ForEach(_table, [on](Instrument& each) { each.Record(on); });
}

void Station::_FinishFiles() {
  ForEach(_table, [](Instrument& each) {
    if (each.Files() != nullptr) each.Files()->Finish();
  });
  _disk.Sync();
}

void Station::DiskCame() {
  std::cout << "The disk is there: " << _disk.Path() << std::endl;
  ForEach(_table, [](Instrument& each) { each.LookAtDisk(); });
}

void Station::DiskWent() {
  std::cout << "The disk has gone: " << _disk.Path() << std::endl;
  ForEach(_table, [](Instrument& each) { each.LookAtDisk(); });
}

void Station::HandleTimeout() {
  AddTimeout(kSecond);
  _second = (_second + 1) % 60;
  _button.Show(_Light());
  if (_second % (Instrument::kLook / kSecond) == 0) ForEach(_table, [](Instrument& each) { each.Look(); });
  if (_second == 0) _EachMinute();
}

void Station::_Store() {
  _file.Save(_document);
  _stored = true;
  _unstored.Over();
}

// Once more for what could not be stored when it was changed.
void Station::_Keep() {
  if (_stored) return;
  try {
    _OfferZones();
    _Store();
  } catch (const std::exception& error) {
    _unstored.Tell(error);
  }
}

void Station::_EachMinute() {
  _Keep();
  ForEach(_table, [](Instrument& each) { each.LookAtDisk(); });
  if (!_disk.IsThere()) return;
  // Files take no more than what is used: while that is little there is no need to look at each of them.
  const int percent = _settings.disk.percent;
  if (_disk.Used() >= percent) _reclaimer.Reclaim(_disk.Path(), percent, ".part");
  const int64_t lost_before = std::exchange(_lost_then, _Lost());
  const bool is_full = _disk.IsFull() || (_lost_then != lost_before && !_disk.TakesNames());
  if (is_full && percent < 100) _reclaimer.Relieve(_disk.Path(), ".part");
}

// Lines of all files.
int64_t Station::_Lost() const {
  int64_t lost = 0;
  for (const InstrumentRow& row : _table)
    if (const auto kept = row.instrument->WhatIsKept()) lost += kept->lost;
  return lost;
}

StationButton::Light Station::_Light() {
  const int64_t before = std::exchange(_lost, _Lost());
  const bool is_losing = _lost != before;
  if (!_recording) return StationButton::Off;
  return _disk.IsThere() && !is_losing ? StationButton::On : StationButton::Error;
}

std::string Station::Status() const {
  Json::Value status;
  for (const InstrumentRow& row : _table) {
    const Tally& records = row.instrument->Records();
    Json::Value& line = status["instruments"][row.name];
    line["connected"] = row.instrument->IsConnected();
    line["records"] = Json::Int64{records.Records()};
    line["rate"] = records.Rate();
    line["bad_sums"] = Json::Int64{records.BadSums()};
    if (records.Last() != 0) line["last"] = Json::Int64{records.Last()};
    row.instrument->Tell(line);
    line["silent"] = row.silent > 0 && !records.CameWithin(row.silent);
    if (const auto kept = row.instrument->WhatIsKept()) {
      if (!kept->file.empty()) line["file"] = kept->file;
      line["written"] = Json::Int64{kept->written};
      line["lost"] = Json::Int64{kept->lost};
    }
  }
  status["recording"] = _recording;
  status["disk"]["path"] = _disk.Path();
  status["disk"]["there"] = _disk.IsThere();
  status["disk"]["available"] = Json::UInt64{_disk.Available()};
  status["clock"]["watching"] = _clock.IsWatching();
  status["clock"]["steps"] = Json::Int64{_clock.Steps()};
  if (_clock.Offset()) {
    status["clock"]["offset"] = *_clock.Offset();
    status["clock"]["age"] = Json::Int64{_clock.OffsetAge()};
  }
  status["memory"] = Memory();
  status["uptime"] = Json::Int64{(PollTimer::Now() - _started) / 1'000'000'000};
  status["version"] = MOORLOG_VERSION;
  Json::StreamWriterBuilder format;
  format["indentation"] = "";
  format["precision"] = 9;
  return Json::writeString(format, status);
}
