#include "station/board.h"

#include <ctime>
#include <exception>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "runtime/runprogram.h"
#include "runtime/superuser.h"
#include "serial/linuxtty.h"
#include "serial/ptpcontrol.h"
#include "station/rights.h"

namespace {

void RunAsRoot(const std::string& command) {
  const SuperUser rights;
  if (RunProgram(command) != 0) throw std::runtime_error("the system refuses");
}

// The document carries fields on, and takes February 30 for the first of March: no clock is set by what isn't there.
long MomentOf(const ConfigCfgClock& clock) {
  const long seconds = clock.TimeDate();
  const time_t moment = seconds;
  tm told{}, meant{};
  const auto fields = [](const tm& of) {
    return std::tuple(of.tm_year, of.tm_mon, of.tm_mday, of.tm_hour, of.tm_min, of.tm_sec);
  };
  if (strptime(clock.date.get().c_str(), "%Y-%m-%d", &told) == nullptr ||
      strptime(clock.time.get().c_str(), "%H:%M:%S", &told) == nullptr || localtime_r(&moment, &meant) == nullptr ||
      fields(told) != fields(meant))
    throw std::runtime_error("There is no " + clock.date.get() + ' ' + clock.time.get());
  return seconds;
}

}  // namespace

std::vector<std::string> Board::Start(ConfigMoorlog& document) {
  ConfigCfgClockPTP& ptp = document.cfg.clock.ptp;
  if (ptp.get() != 0) _Try(ptp, ptp, [&] { _StartPTP(ptp.get()); });
  return std::exchange(_errors, {});
}

// Date and time need no putting back: the owner makes them the present ones before each request.
std::vector<std::string> Board::Apply(ConfigMoorlog& document, const ConfigMoorlog& before) {
  ConfigCfgMoorlog& cfg = document.cfg;
  ConfigCfgClock& clock = cfg.clock;
  ConfigCfgNetwork& network = cfg.network;
  _errors.clear();
  if (clock.zone.has_changed()) _Try(clock.zone, before.cfg.clock.zone, [&] { _clock.SetZone(clock.zone.get_str()); });
  clock.zone.set_str(_clock.CurrentZone());  // it may be in force, and only its file not written
  if (clock.date.has_changed() || clock.time.has_changed())
    _Try(clock.time, before.cfg.clock.time, [&] { _clock.SetTime(MomentOf(clock)); });
  if (clock.ptp.has_changed()) _Try(clock.ptp, before.cfg.clock.ptp, [&] { _StartPTP(clock.ptp.get()); });
  if (network.name.has_changed()) {
    _Try(network.name, before.cfg.network.name, [&] {
      // hostnamed keeps it across a restart, and needs no right of ours to administer the system.
      // Quotes come off where a blank follows (SplitCmdLine).
      const std::string command = "/usr/bin/hostnamectl set-hostname -- \"" + network.name.get() + "\" ";
      _errands.Do(network.name.get_name(), [command] { RunAsRoot(command); });
    });
  }
  if (cfg.sonicbaud.has_changed()) {
    _Try(cfg.sonicbaud, before.cfg.sonicbaud, [&] {
      if (!LinuxTTYControl::IsBaudRate(cfg.sonicbaud.get())) throw std::runtime_error("no serial port has this rate");
    });
  }
  // Powering the bus takes them.
  if (cfg.daqm.port.has_changed() && cfg.daqm.port.get() != 0)
    _Try(cfg.daqm.port, before.cfg.daqm.port, [] { const SuperUser rights; });
  for (const Configurable* item : std::initializer_list<const Configurable*>{
           &network.configuration, &network.ipaddress, &network.netmask, &network.gateway, &document.output.status,
           &document.output.dataclock, &document.ipaddress, &cfg.logger.moorcloudaddress, &cfg.logger.moorcloudapikey})
    if (item->has_changed()) _errors.push_back(item->get_name() + ": kept, and nothing is changed by it on this board");
  return std::exchange(_errors, {});
}

template <class Item, class Deed>
void Board::_Try(Item& item, const Item& before, Deed deed) {
  const EffectiveUser user;
  try {
    deed();
  } catch (const std::exception& error) {
    item.set(before.get());
    _errors.push_back(item.get_name() + ": " + error.what());
  }
}

// The choices: "auto", "slaveonly" and "preferred". A board that has a GPS receiver is the master only where it is
// preferred.
void Board::_StartPTP(int choice) {
  constexpr int kPreferred = 2;
  _errands.Do("ptp", [choice] {
    PTPControl ptp;
    choice == kPreferred ? ptp.StartGPS() : ptp.StartSlave();
  });
}

void Board::Reboot() {
  _errands.Do("reboot", [] { RunAsRoot("/usr/bin/systemctl reboot"); });
}
