// moorlog-station: reads all the instruments, keeps the clock and the disk, and answers tools, until it is ended by
// SIGTERM or SIGINT. SIGHUP reads the settings again. docs/station.md is for who installs it.
//
// Exit status: 0 when it was ended; 2 for settings that can't be taken; 1 for what can't be had at the start (with
// --check too), or when the same error has come over and over.

#include <fcntl.h>
#include <net/if.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

#include "runtime/pollprocessor.h"
#include "station/disk.h"
#include "station/mishaps.h"
#include "station/rights.h"
#include "station/settings.h"
#include "station/station.h"
#include "station/watchdog.h"

namespace {

// Notes that the signal has come.
class Noted : public PollSignalHandler {
 public:
  explicit Noted(int signal) : PollSignalHandler(signal, true) {}
  void HandleSignal(int /*signal*/) override { _came = true; }
  bool Take() { return std::exchange(_came, false); }

 private:
  bool _came = false;
};

class End : public PollTimer {
 public:
  explicit End(int seconds) : PollTimer(seconds > 0 ? seconds * 1'000 : -1, true) {}
  void HandleTimeout() override { _over = true; }
  bool IsOver() const { return _over; }

 private:
  bool _over = false;
};

std::string OrNone(const std::string& text) {
  return text.empty() ? "none" : text;
}

// What won't run, for want of a file or of rights: those of the user that it would work as. False: nothing would.
bool TellMissing(const Settings& settings) {
  bool starts = true;
  const auto missing = [](const std::string& what) { std::cout << "missing    " << what << '\n'; };
  const auto fails = [&](const std::string& what) {
    starts = false;
    missing(what + "; the station doesn't start");
  };
  const auto can = [](int use, const std::string& path) {
    return faccessat(AT_FDCWD, path.c_str(), use, AT_EACCESS) == 0;
  };
  try {
    WorkAs(settings.user);
  } catch (const std::runtime_error& error) {
    fails(error.what());
  }
  const std::string& interface = settings.control.interface;
  if (!interface.empty() && if_nametoindex(interface.c_str()) == 0) fails("there is no interface " + interface);
  const std::filesystem::path state = settings.state;
  std::error_code unknown;
  const std::filesystem::path place = exists(state, unknown) ? state : state.parent_path();
  if (!can(R_OK | W_OK | X_OK, place)) fails(place.string() + " can't be written to");
  const std::string& disk = settings.disk.path;
  if (!Disk(disk, settings.disk.board).IsThere())
    missing("there is no disk at " + disk + " now; nothing is written until there is one");
  else if (!can(W_OK | X_OK, disk))
    missing(disk + " can't be written to");
  const std::string& rows = settings.campbell.directory;
  if (!rows.empty() && !can(W_OK | X_OK, rows)) missing(rows + " can't be written to; no rows are put there");
  for (const std::string& device :
       {settings.gps.device, settings.gps.pulse, settings.sonic.device, settings.button.device})
    if (!device.empty() && !can(R_OK | W_OK, device))
      missing(device + " can't be opened now; it is looked for every ten seconds");
  if (IsRootsProcess() && settings.clock.mode == "set" && !can(F_OK, settings.clock.rtc))
    missing("there is no hardware clock '" + settings.clock.rtc + "'");
  if (access("/usr/bin/zip", X_OK) != 0) missing("/usr/bin/zip: files won't be packed");
  if (!IsRootsProcess())
    missing(
        "root's rights: the clock is only watched, the modules stay off; zone, name, time protocol and reboot are "
        "refused");
  return starts;
}

// What would run, and what won't.
int Check(const Settings& settings) {
  std::cout << "name       " << settings.name << "\nstate      " << settings.state << "\ndisk       "
            << settings.disk.path << (settings.disk.board ? ", also on the board's own disk" : "") << ", files of "
            << settings.disk.split << " s, " << settings.disk.percent << " %\ncontrol    port " << settings.control.port
            << " on " << (settings.control.interface.empty() ? "all interfaces" : settings.control.interface)
            << "\nanalyser   records " << settings.analyser.record << "\ngps        " << OrNone(settings.gps.device)
            << ", pulse " << OrNone(settings.gps.pulse) << "\nsonic      " << OrNone(settings.sonic.device)
            << "\nbutton     " << OrNone(settings.button.device) << "\ncampbell   rows in "
            << (settings.campbell.directory.empty() ? settings.disk.path : settings.campbell.directory)
            << "\nclock      " << settings.clock.mode << '\n';
  const bool starts = TellMissing(settings);
  return std::cout.flush() && starts ? 0 : 1;
}

// The station by the settings in force, and by others when they are read again.
class Service {
 public:
  Service(int argc, char** argv, Settings settings) : _argc(argc), _argv(argv), _settings(std::move(settings)) {
    WorkAs(_settings.user);
    _Start(_settings);
  }

  // False: the same error has come over and over, or no settings can be had any more.
  bool Run(const End& end) {
    for (bool more = true; more && !end.IsOver();) {
      try {
        more = PollProcessor::Instance().Poll(-1);
        if (_reload.Take()) _Reload();
      } catch (const std::exception& error) {
        if (!_mishaps.Bear(error.what()) || !_station) return false;
      }
    }
    _watchdog.Stopping();
    _station.reset();
    return true;
  }

 private:
  void _Start(const Settings& settings) {
    _station = std::make_unique<Station>(settings, ZonePlaces{}, _orders);
    const std::string port = "control port " + std::to_string(_station->ControlPort());
    std::cout << "moorlog-station " << MOORLOG_VERSION << ": " << port << std::endl;
    _watchdog.Ready(port);
  }

  // What can't be taken, or had, leaves everything as it was. Another user takes a new start.
  void _Reload() {
    const auto keep = [](const std::exception& error) {
      std::cout << "ERROR: the settings stay as they were: " << error.what() << std::endl;
    };
    _watchdog.Reloading();
    Settings fresh;
    try {
      ReadSettings(_argc, _argv, fresh);
    } catch (const std::exception& error) {
      keep(error);
      return _watchdog.Ready("settings that can't be taken");
    }
    _orders = _station->Orders();
    _station.reset();
    try {
      _Start(fresh);
      _settings = fresh;
    } catch (const std::exception& error) {
      keep(error);
      _Start(_settings);
    }
  }

  const int _argc;
  char** const _argv;
  Settings _settings;
  StationOrders _orders;  // that outlive settings
  Noted _reload{SIGHUP};
  Watchdog _watchdog;
  Mishaps _mishaps;
  std::unique_ptr<Station> _station;
};

int Run(int argc, char** argv, const Settings& settings, int seconds) {
  PollProcessor::Instance().QuitOnSignal(SIGTERM);
  PollProcessor::Instance().QuitOnSignal(SIGINT);
  const End end(seconds);
  if (!Service(argc, argv, settings).Run(end)) return 1;
  std::cout << "moorlog-station: all files are finished" << std::endl;
  return 0;
}

}  // namespace

int main(int argc, char** argv) try {
  Settings settings;
  const Command command = ReadSettings(argc, argv, settings);
  return command.check ? Check(settings) : Run(argc, argv, settings, command.seconds);
} catch (const SettingsError& error) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  return 2;
} catch (const std::exception& error) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  return 1;
}
