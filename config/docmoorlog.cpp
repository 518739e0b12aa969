#include "config/docmoorlog.h"

#include <ostream>

namespace {

constexpr int kGPSTypeGarmin = 1;

}  // namespace

ConfigOutputMoorlog::ConfigOutputMoorlog() : ConfigurableComposite("output") {
  _add_all({&status, &dataclock});
}

ConfigCfgLogger::ConfigCfgLogger() : ConfigurableComposite("logger") {
  _add_all({&loggeraddress, &loggertable, &moorcloudaddress, &moorcloudapikey});
}

ConfigCfgDAQMPort::ConfigCfgDAQMPort()
    : ConfigurableMultipleChoice("port", _filled(_choices, {"None", "1", "2", "3"}), 0) {}

ConfigCfgDAQM::ConfigCfgDAQM() : ConfigurableComposite("daqm") {
  add(port);
}

ConfigCfgGPSType::ConfigCfgGPSType()
    : ConfigurableMultipleChoice("gpstype", _filled(_choices, {"Hemisphere", "Garmin"}), kGPSTypeGarmin) {}

ConfigCfgMoorlog::ConfigCfgMoorlog() : ConfigurableComposite("cfg") {
  _add_all({&head, &soil, &logger, &daqm, &sonicbaud, &gpstype, &clock, &network});
}

ConfigCmdMoorlog::ConfigCmdMoorlog() : ConfigurableComposite("cmd") {
  _add_all({&logusbstart, &logusbstop, &startdaqmlivemeasure, &stopdaqmlivemeasure, &ejectusb, &reboot});
}

ConfigFactoryMoorlog::ConfigFactoryMoorlog() : ConfigurableComposite("factory") {
  add(serialnumber);
}

ConfigMoorlog::ConfigMoorlog() : ConfigDocumentSection("moorlog") {
  _add_all({&ack, &ver, &name, &serialnumber, &ipaddress, &output, &cfg, &cmd, &factory, &error});
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
