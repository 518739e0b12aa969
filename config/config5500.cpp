#include "config/config5500.h"

#include <algorithm>
#include <cctype>
#include <initializer_list>
#include <stdexcept>
#include <utility>

namespace {

using Choices = ConfigurableMultipleChoice::Choices;

// A choice that stands for a number.
struct Meaning {
  const char* text;
  int number;
};

const Choices& Filled(Choices& choices, std::vector<int>& numbers, std::initializer_list<Meaning> meanings) {
  if (choices.empty())
    for (const Meaning& meaning : meanings) {
      choices.emplace_back(meaning.text);
      numbers.push_back(meaning.number);
    }
  return choices;
}

constexpr int kFastestRate = 6;
constexpr int kTempRangeHigh = 1;
constexpr int kLaserBlockOn = 1;
constexpr int kAuxiliaries = 8;

// What dac1 to dac6 show at first: indexes of ConfigCfgDacSrc.
constexpr int kDacSources[] = {1, 3, 4, 5, 6, 2};

}  // namespace

ConfigRate::ConfigRate(const Choices& choices) : ConfigurableMultipleChoice("rate", choices, kFastestRate) {}

ConfigOutput::ConfigOutput() : ConfigurableComposite("output") {
  Filled(_rate_strings, _rate_ints, {{"0", 0}, {"1", 1}, {"2", 2}, {"5", 5}, {"10", 10}, {"20", 20}, {"40", 40}});
  _add_all({&rate, &waveforms, &status, &dataclock, &dataclocksync});
}

int ConfigOutput::get_rate() const {
  return _rate_ints[static_cast<size_t>(rate.get())];
}

ConfigBoxData::ConfigBoxData(bool with_date_time)
    : ConfigurableComposite("data"), date("date", with_date_time), time("time", with_date_time) {
  _add_all({&msec, &seconds, &nanoseconds, &diag, &ch4, &ch4d, &temp, &pressure, &rssi, &droprate});
  _add_all({&aux1, &aux2, &aux3, &aux4, &aux5, &aux6, &aux7, &aux8, &auxtc1, &auxtc2, &auxtc3, &chk});
  if (with_date_time) _add_all({&date, &time});
  for (Configurable* column : {&seconds, &nanoseconds, &chk}) column->_set_read_only(true);
}

void ConfigBoxData::GetTrueSet(std::set<std::string>& names) const {
  names.clear();
  const auto look_at = [&names](const ConfigurableBool& column) {
    std::string name = column.get_name();
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::toupper(c); });
    if (column.get()) names.insert(name);
  };
  for (const Configurable* column : children()) look_at(static_cast<const ConfigurableBool&>(*column));
  look_at(date);
  look_at(time);
}

ConfigBoxOutput::ConfigBoxOutput() : ConfigurableComposite("output") {
  _add_all({&data, &waveforms, &status, &dataclock});
}

ConfigBoxUSBStatus::ConfigBoxUSBStatus()
    : ConfigurableMultipleChoice("status", _filled(_choices, {"same_file", "separate_file", "off"}), 0) {}

ConfigBoxUSBSplit::ConfigBoxUSBSplit()
    : ConfigurableMultipleChoice("split",
                                 Filled(_choices, _seconds,
                                        {{"0", 0},
                                         {"15", 900},
                                         {"30", 1800},
                                         {"60", 3600},
                                         {"90", 5400},
                                         {"120", 7200},
                                         {"180", 10800},
                                         {"240", 14400},
                                         {"1440", 86400}}),
                                 0) {}

int ConfigBoxUSBSplit::get_seconds() const {
  return _seconds[static_cast<size_t>(get())];
}

ConfigBoxUSB::ConfigBoxUSB() : ConfigurableComposite("usb") {
  _add_all({&data, &status, &split, &zip});
}

ConfigBox::ConfigBox() : ConfigurableComposite("box") {
  _add_all({&output, &usb});
}

ConfigCmd::ConfigCmd() : ConfigurableComposite("cmd") {
  _add_all({&poll, &ch4zero, &ch4span, &calcommit, &calrollback, &calabort, &logusbstart, &logusbstop, &reboot,
            &polltest, &linelock});
}

ConfigCfgTempRange::ConfigCfgTempRange()
    : ConfigurableMultipleChoice("temprange", _filled(_choices, {"low", "high"}), kTempRangeHigh) {}

std::istream& ConfigCfgTempRange::read(std::istream& in, std::ostream& errors) {
  ConfigurableMultipleChoice::read(in, errors);
  _set_changed(true);
  return in;
}

ConfigCfgAuxType::ConfigCfgAuxType()
    : ConfigurableMultipleChoice("type", _filled(_choices, {"poly", "steinhart", "linear-rt"}), 0) {}

ConfigCfgAux::ConfigCfgAux(std::string name) : ConfigurableComposite(std::move(name)) {
  _add_all({&type, &a0, &a1, &a2, &a3});
}

ConfigCfgDacSrc::ConfigCfgDacSrc(int index)
    : ConfigurableMultipleChoice(
          "src",
          _filled(_choices, {"set", "ch4d", "ch4", "temp", "pressure", "rssi", "droprate", "aux1", "aux2", "aux3",
                             "aux4", "aux5", "aux6", "aux7", "aux8", "auxtc1", "auxtc2", "auxtc3"}),
          index) {}

ConfigCfgDac::ConfigCfgDac(std::string name, int source) : ConfigurableComposite(std::move(name)), src(source) {
  _add_all({&set, &src, &low, &high});
}

ConfigControl::ConfigControl() : ConfigControl("control") {}

ConfigControl::ConfigControl(std::string name)
    : ConfigurableMultipleChoice(std::move(name), _filled(_choices, {"auto", "on", "off"}), 0) {}

ConfigOnOffControl::ConfigOnOffControl() : ConfigurableMultipleChoice("control", _filled(_choices, {"off", "on"}), 0) {}

ConfigMirrorHeater::ConfigMirrorHeater(std::string name) : ConfigurableComposite(std::move(name)) {
  _add_all({&heaterpower, &control, &ontime, &offtime});
}

ConfigTopHeater::ConfigTopHeater() : ConfigMirrorHeater("top") {
  add(deltat);
}

ConfigBottomHeater::ConfigBottomHeater() : ConfigMirrorHeater("bottom") {
  add(signalstrengthlevel);
}

ConfigHeater::ConfigHeater() : ConfigurableComposite("heater") {
  _add_all({&top, &bottom});
}

ConfigLaserCoolerAutoManual::ConfigLaserCoolerAutoManual()
    : ConfigurableMultipleChoice("control", _filled(_choices, {"auto", "manual", "daccount"}), 0) {}

ConfigLaserCooler::ConfigLaserCooler() : ConfigurableComposite("lasercooler") {
  _add_all({&control, &temp, &daccount});
}

ConfigLaserBlockOnOff::ConfigLaserBlockOnOff()
    : ConfigurableMultipleChoice("control", _filled(_choices, {"off", "on", "daccount"}), kLaserBlockOn) {}

ConfigLaserBlock::ConfigLaserBlock() : ConfigurableComposite("laserblock") {
  _add_all({&control, &temp, &daccount});
}

ConfigLineLock::ConfigLineLock() : ConfigurableComposite("linelock") {
  _add_all({&lasercooler, &laserblock});
}

ConfigSpinMirror::ConfigSpinMirror() : ConfigurableComposite("spinmirror") {
  _add_all({&control, &ontime, &offtime, &duration, &repeatinterval, &signalstrengthlevel});
}

ConfigCfg::ConfigCfg() : ConfigurableComposite("cfg") {
  for (int number = 1; number <= kAuxiliaries; ++number)
    aux.push_back(std::make_shared<ConfigCfgAux>("aux" + std::to_string(number)));
  for (const int source : kDacSources)
    dac.push_back(std::make_shared<ConfigCfgDac>("dac" + std::to_string(dac.size() + 1), source));
  _add_all({&temprange, &clock, &network});
  for (const auto& input : aux) add(*input);
  for (const auto& output : dac) add(*output);
  _add_all({&heater, &linelock, &spinmirror, &sdmaddress});
}

const ConfigCfgAux& ConfigCfg::Auxiliary(int number) const {
  if (number < 1 || number > static_cast<int>(aux.size()))
    throw std::runtime_error("Invalid Auxilliary: " + std::to_string(number));
  return *aux[static_cast<size_t>(number) - 1];
}

ConfigCPLDMotor::ConfigCPLDMotor() : ConfigurableComposite("motor") {
  _add_all({&control, &desired_pos, &actual_pos});
}

ConfigCPLD::ConfigCPLD() : ConfigurableComposite("cpld") {
  _add_all({&ver, &motor});
}

ConfigFactoryCmd::ConfigFactoryCmd() : ConfigurableComposite("cmd") {
  _add_all({&commit, &rollback});
}

ConfigFactory::ConfigFactory() : ConfigurableComposite("factory") {
  _add_all({&serialnumber,
            &lasermoddepth,
            &laserstarttemp,
            &blockstarttemp,
            &blockstarttemplowrange,
            &rssidropthresh,
            &pzero,
            &pspan,
            &samplegain,
            &refgain,
            &mirrorpos,
            &offset1,
            &delta1,
            &offset2,
            &delta2,
            &dither,
            &sampledcoffset,
            &sampleacoffset,
            &sampleopticaloffset,
            &cmd});
}

Config5500::Config5500() : ConfigDocumentSection("tn5500") {
  _add_all({&ack, &ver, &name, &serialnumber, &ipaddress, &output, &box, &cfg, &cal, &cmd, &cpld, &factory, &error});
}

bool Config5500::IsConfigChanged() const {
  if (!has_changed()) return false;
  const std::initializer_list<const Configurable*> configuration = {&output, &box,  &cfg,          &cal,      &factory,
                                                                    &ver,    &name, &serialnumber, &ipaddress};
  return std::any_of(configuration.begin(), configuration.end(),
                     [](const Configurable* item) { return item->has_changed(); });
}
