#include "config/doc5500.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>
#include <utility>

namespace {

// Cut to whole seconds.
int SecondsOf(const ConfigurableTimestamp& item) {
  using Limits = std::numeric_limits<int>;
  const double seconds = item.get().get();
  return std::isnan(seconds) ? 0 : static_cast<int>(std::clamp<double>(seconds, Limits::min(), Limits::max()));
}

template <typename Enumeration>
Enumeration ChoiceOf(const ConfigurableMultipleChoice& item) {
  return static_cast<Enumeration>(item.get());
}

}  // namespace

Doc5500::Doc5500() : ConfigurableComposite("tarno") {
  add(tn5500);
}

Doc5500::Listener* Doc5500::RegisterListener(Listener* listener) {
  return std::exchange(_listener, listener);
}

// Setting the commands back is a change where one was set: the document behind a factory command tells of the factory
// values once more. That is meant.
std::ostream& Doc5500::configure_and_send_events(std::istream& in, std::ostream& out) {
  tn5500.cmd.set_to_default();
  tn5500.factory.cmd.set_to_default();
  configure(in, out);
  if (_listener == nullptr) return out;
  if (tn5500.cal.has_changed()) _Tell(&Listener::GotCalChanged);
  bool static_changed = tn5500.box.has_changed();
  if (_TellOutput()) static_changed = true;
  if (_TellCfg()) static_changed = true;
  _TellFactory();
  if (static_changed) _Tell(&Listener::StaticConfigChanged);
  _TellCommands();
  return out;
}

// Looks for the listener each time: the one before may have been replaced, or taken away.
template <typename... Parameters, typename... Arguments>
void Doc5500::_Tell(void (Listener::*operation)(Parameters...), Arguments&&... arguments) {
  if (_listener != nullptr) (_listener->*operation)(std::forward<Arguments>(arguments)...);
}

bool Doc5500::_TellOutput() {
  if (!tn5500.output.has_changed() || !tn5500.output.rate.has_changed()) return false;
  _Tell(&Listener::GotOutputRate, tn5500.output.get_rate());
  return true;
}

bool Doc5500::_TellCfg() {
  const ConfigCfg& cfg = tn5500.cfg;
  if (!cfg.has_changed()) return false;
  bool static_changed = false;
  if (cfg.temprange.has_changed()) {
    static_changed = true;
    _Tell(&Listener::GotTempRange, ChoiceOf<Listener::TempRange>(cfg.temprange));
  }
  if (cfg.heater.has_changed()) {
    static_changed = true;
    _TellHeater();
  }
  if (cfg.spinmirror.has_changed()) {
    static_changed = true;
    _TellSpinMirror();
  }
  if (cfg.linelock.has_changed()) _TellLineLock();
  if (cfg.clock.has_changed()) _TellClock();
  if (cfg.network.has_changed()) _TellNetwork();
  if (_TellAuxiliaries()) static_changed = true;
  const auto has_changed = [](const auto& output) { return output->has_changed(); };
  return std::any_of(cfg.dac.begin(), cfg.dac.end(), has_changed) || static_changed;
}

void Doc5500::_TellHeater() {
  const ConfigBottomHeater& bottom = tn5500.cfg.heater.bottom;
  const ConfigTopHeater& top = tn5500.cfg.heater.top;
  if (bottom.has_changed())
    _Tell(&Listener::GotBottomHeaterConfig, bottom.heaterpower.get(), ChoiceOf<Listener::Control>(bottom.control),
          bottom.signalstrengthlevel.get(), SecondsOf(bottom.ontime), SecondsOf(bottom.offtime));
  if (top.has_changed())
    _Tell(&Listener::GotTopHeaterConfig, top.heaterpower.get(), ChoiceOf<Listener::Control>(top.control),
          top.deltat.get(), SecondsOf(top.ontime), SecondsOf(top.offtime));
}

void Doc5500::_TellSpinMirror() {
  const ConfigSpinMirror& mirror = tn5500.cfg.spinmirror;
  _Tell(&Listener::GotSpinMotorConfig, ChoiceOf<Listener::Control>(mirror.control), mirror.signalstrengthlevel.get(),
        SecondsOf(mirror.ontime), SecondsOf(mirror.offtime), mirror.duration.get(), SecondsOf(mirror.repeatinterval));
}

void Doc5500::_TellLineLock() {
  const ConfigLaserCooler& cooler = tn5500.cfg.linelock.lasercooler;
  const ConfigLaserBlock& block = tn5500.cfg.linelock.laserblock;
  _Tell(&Listener::GotLineLockConfig, ChoiceOf<Listener::LC_Control>(cooler.control), cooler.temp.get(),
        static_cast<uint16_t>(cooler.daccount.get()), ChoiceOf<Listener::BT_Control>(block.control), block.temp.get(),
        static_cast<uint16_t>(block.daccount.get()));
}

void Doc5500::_TellClock() {
  const ConfigCfgClock& clock = tn5500.cfg.clock;
  if (clock.date.has_changed() || clock.time.has_changed()) _Tell(&Listener::GotClockSetting, clock.TimeDate());
  if (clock.zone.has_changed()) _Tell(&Listener::GotTimezoneSetting, clock.zone.get_str());
  if (clock.ptp.has_changed()) _Tell(&Listener::GotPTPSetting, clock.ptp.get());
}

void Doc5500::_TellNetwork() {
  constexpr int kAutomatic = 0;
  const ConfigCfgNetwork& network = tn5500.cfg.network;
  _Tell(&Listener::GotNetworkSetting, network.name.get(), network.configuration.get() == kAutomatic,
        network.ipaddress.get(), network.netmask.get(), network.gateway.get());
}

bool Doc5500::_TellAuxiliaries() {
  const ConfigCfg& cfg = tn5500.cfg;
  bool told = false;
  for (int number = 1; number <= static_cast<int>(cfg.aux.size()); ++number) {
    const ConfigCfgAux& input = cfg.Auxiliary(number);
    if (!input.has_changed()) continue;
    told = true;
    _Tell(&Listener::GotAuxConfig, number, ChoiceOf<Listener::AuxType>(input.type), input.a0.get(), input.a1.get(),
          input.a2.get(), input.a3.get());
  }
  return told;
}

void Doc5500::_TellFactory() {
  const ConfigFactory& factory = tn5500.factory;
  if (!factory.has_changed()) return;
  if (factory.cmd.has_changed()) {
    if (factory.cmd.commit.get()) _Tell(&Listener::GotFactoryCommitCmd);
    if (factory.cmd.rollback.get()) _Tell(&Listener::GotFactoryRollbackCmd);
  }
  _Tell(&Listener::GotFactoryChanged);
}

// Not in the order of the tags; that is meant.
void Doc5500::_TellCommands() {
  const ConfigCmd& cmd = tn5500.cmd;
  if (!cmd.has_changed()) return;
  if (cmd.linelock.get()) _Tell(&Listener::GotLineLockCmd);
  if (cmd.poll.get()) _Tell(&Listener::GotPollCmd);
  if (cmd.polltest.get()) _Tell(&Listener::GotPollTestCmd);
  if (cmd.ch4zero.get()) _Tell(&Listener::GotCalCH4ZeroCmd);
  if (cmd.ch4span.get()) _Tell(&Listener::GotCalCH4SpanCmd, tn5500.cal.ch4spanconc.get());
  if (cmd.calcommit.get()) _Tell(&Listener::GotCalCommitCmd);
  if (cmd.calrollback.get()) _Tell(&Listener::GotCalRollbackCmd);
  if (cmd.calabort.get()) _Tell(&Listener::GotCalAbortCmd);
  if (cmd.logusbstart.get()) _Tell(&Listener::GotLogUSBStartCmd);
  if (cmd.logusbstop.get()) _Tell(&Listener::GotLogUSBStopCmd);
  if (cmd.reboot.get()) _Tell(&Listener::GotRebootCmd);
}
