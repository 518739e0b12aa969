#include "config/docmoorlog.h"

#include <ostream>

namespace {

constexpr int kGPSTypeGarmin = 1;

}  // namespace

ConfigOutputMoorlog::ConfigOutputMoorlog() : ConfigurableComposite("output") {
  add(status);
  add(dataclock);
}

ConfigCfgLogger::ConfigCfgLogger() : ConfigurableComposite("logger") {
  add(loggeraddress);
  add(loggertable);
  add(moorcloudaddress);
  add(moorcloudapikey);
}

ConfigurableMultipleChoice::Choices ConfigCfgDAQMPort::_choices;

ConfigCfgDAQMPort::ConfigCfgDAQMPort() : ConfigurableMultipleChoice("port", _choices, 0) {
  if (_choices.empty()) _choices = {"None", "1", "2", "3"};
}

ConfigCfgDAQM::ConfigCfgDAQM() : ConfigurableComposite("daqm") {
  add(port);
}

ConfigurableMultipleChoice::Choices ConfigCfgGPSType::_choices;

ConfigCfgGPSType::ConfigCfgGPSType() : ConfigurableMultipleChoice("gpstype", _choices, kGPSTypeGarmin) {
  if (_choices.empty()) _choices = {"Hemisphere", "Garmin"};
}

ConfigCfgMoorlog::ConfigCfgMoorlog() : ConfigurableComposite("cfg") {
  add(head);
  add(soil);
  add(logger);
  add(daqm);
  add(sonicbaud);
  add(gpstype);
  add(clock);
  add(network);
}

ConfigCmdMoorlog::ConfigCmdMoorlog() : ConfigurableComposite("cmd") {
  add(logusbstart);
  add(logusbstop);
  add(startdaqmlivemeasure);
  add(stopdaqmlivemeasure);
  add(ejectusb);
  add(reboot);
}

ConfigFactoryMoorlog::ConfigFactoryMoorlog() : ConfigurableComposite("factory") {
  add(serialnumber);
}

ConfigMoorlog::ConfigMoorlog() : ConfigDocumentSection("moorlog") {
  add(ack);
  add(ver);
  add(name);
  add(serialnumber);
  add(ipaddress);
  add(output);
  add(cfg);
  add(cmd);
  add(factory);
  add(error);
}

bool ConfigMoorlog::IsConfigChanged() const {
  return has_changed() && (output.has_changed() || cfg.has_changed() || ver.has_changed() || name.has_changed() ||
                           serialnumber.has_changed() || ipaddress.has_changed());
}

DocMoorlog::DocMoorlog() : ConfigurableComposite("tarno") {
  add(moorlog);
}

void DocMoorlog::NotifyListeners() {
  if (!has_changed()) return;
  ConfigurableEvent event(this);
  for (const auto& [key, listener] : _listeners) listener->changed(event);
}

std::ostream& DocMoorlog::configure_and_send_events(std::istream& in, std::ostream& out) {
  moorlog.cmd.set_to_default();
  configure(in, out);
  NotifyListeners();
  return out;
}
