// The tree of the analyser's document: everything that the head reports and accepts.
//
// The sections only carry their values; what a setting does on the head is the head's business. Members bear the names
// of their tags, so that code reads like the document: document.tn5500.cfg.heater.top.deltat. Each line is a row of the
// document: the tag, the default, and the range or the choices where there are any.
//
// A number outside its range becomes the nearest one inside; NaN is taken as it stands, which is the `false` of a
// float with a range. Units are those of the head.

#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "config/configbuiltin.h"
#include "config/configcal.h"
#include "config/configtimestamp.h"
#include "config/configurable.h"
#include "config/doc5500common.h"

// Data lines a second; the integer for each choice stands in ConfigOutput.
class ConfigRate : public ConfigurableMultipleChoice {
 public:
  explicit ConfigRate(const Choices& choices);
};

// What the head sends on the connection that the document came by.
class ConfigOutput : public ConfigurableComposite {
 public:
  ConfigOutput();

  int get_rate() const;  // data lines a second

  ConfigRate rate{_rate_strings};
  ConfigurableBool waveforms{"waveforms", false};
  ConfigurableBool status{"status", false};
  ConfigurableBool dataclock{"dataclock", false};
  ConfigurableBool dataclocksync{"dataclocksync", false};

 private:
  // Parallel: the choice at an index means the integer at that index.
  inline static ConfigurableMultipleChoice::Choices _rate_strings;
  inline static std::vector<int> _rate_ints;
};

// The columns of a data line. A document can't turn the time and the sum off.
class ConfigBoxData : public ConfigurableComposite {
 public:
  // Without date and time these two are no part of the document, and false.
  explicit ConfigBoxData(bool with_date_time);

  // Exactly the names of the columns that are wanted, in upper case: what IncludeCols takes. Date and time count also
  // where they are no part of the document.
  void GetTrueSet(std::set<std::string>& names) const;

  ConfigurableBool msec{"msec", false};
  ConfigurableBool seconds{"seconds", true};
  ConfigurableBool nanoseconds{"nanoseconds", true};
  ConfigurableBool diag{"diag", true};
  ConfigurableBool ch4{"ch4", true};
  ConfigurableBool ch4d{"ch4d", true};
  ConfigurableBool temp{"temp", true};
  ConfigurableBool pressure{"pressure", true};
  ConfigurableBool rssi{"rssi", true};
  ConfigurableBool droprate{"droprate", true};
  ConfigurableBool aux1{"aux1", true};
  ConfigurableBool aux2{"aux2", true};
  ConfigurableBool aux3{"aux3", true};
  ConfigurableBool aux4{"aux4", true};
  ConfigurableBool aux5{"aux5", true};
  ConfigurableBool aux6{"aux6", true};
  ConfigurableBool aux7{"aux7", true};
  ConfigurableBool aux8{"aux8", true};
  ConfigurableBool auxtc1{"auxtc1", true};
  ConfigurableBool auxtc2{"auxtc2", true};
  ConfigurableBool auxtc3{"auxtc3", true};
  ConfigurableBool chk{"chk", true};
  ConfigurableBool date;
  ConfigurableBool time;
};

// What the head's box sends to its clients.
class ConfigBoxOutput : public ConfigurableComposite {
 public:
  ConfigBoxOutput();

  ConfigBoxData data{false};
  ConfigurableBool waveforms{"waveforms", false};
  ConfigurableBool status{"status", false};
  ConfigurableBool dataclock{"dataclock", false};
};

class ConfigBoxUSBStatus : public ConfigurableMultipleChoice {
 public:
  ConfigBoxUSBStatus();

 private:
  inline static Choices _choices;
};

// When a file on the disk ends, in minutes; "0" for never.
class ConfigBoxUSBSplit : public ConfigurableMultipleChoice {
 public:
  ConfigBoxUSBSplit();

  int get_seconds() const;

 private:
  // Parallel.
  inline static Choices _choices;
  inline static std::vector<int> _seconds;
};

// What the head's box writes on its disk.
class ConfigBoxUSB : public ConfigurableComposite {
 public:
  ConfigBoxUSB();

  ConfigBoxData data{true};
  ConfigBoxUSBStatus status;
  ConfigBoxUSBSplit split;
  ConfigurableBool zip{"zip", false};
};

class ConfigBox : public ConfigurableComposite {
 public:
  ConfigBox();

  ConfigBoxOutput output;
  ConfigBoxUSB usb;
};

// One-shot commands: a document sets one to true, and it is false again before the next document.
class ConfigCmd : public ConfigurableComposite {
 public:
  ConfigCmd();

  ConfigurableBool poll{"poll", false};
  ConfigurableBool ch4zero{"ch4zero", false};
  ConfigurableBool ch4span{"ch4span", false};
  ConfigurableBool calcommit{"calcommit", false};
  ConfigurableBool calrollback{"calrollback", false};
  ConfigurableBool calabort{"calabort", false};
  ConfigurableBool logusbstart{"logusbstart", false};
  ConfigurableBool logusbstop{"logusbstop", false};
  ConfigurableBool reboot{"reboot", false};
  ConfigurableBool polltest{"polltest", false};
  ConfigurableBool linelock{"linelock", false};
};

// Reading it always marks a change, whatever the text says: a repeated range is told again. That is meant.
class ConfigCfgTempRange : public ConfigurableMultipleChoice {
 public:
  ConfigCfgTempRange();

  std::istream& read(std::istream& in, std::ostream& errors) override;

 private:
  inline static Choices _choices;
};

class ConfigCfgAuxType : public ConfigurableMultipleChoice {
 public:
  ConfigCfgAuxType();

 private:
  inline static Choices _choices;
};

// How an auxiliary input becomes a value: the coefficients of its type.
class ConfigCfgAux : public ConfigurableComposite {
 public:
  explicit ConfigCfgAux(std::string name);

  ConfigCfgAuxType type;
  ConfigurableFloat a0{"a0", 0};
  ConfigurableFloat a1{"a1", 1};
  ConfigurableFloat a2{"a2", 0};
  ConfigurableFloat a3{"a3", 0};
};

// What an analogue output shows.
class ConfigCfgDacSrc : public ConfigurableMultipleChoice {
 public:
  explicit ConfigCfgDacSrc(int index);

 private:
  inline static Choices _choices;
};

class ConfigCfgDac : public ConfigurableComposite {
 public:
  ConfigCfgDac(std::string name, int source);  // `source` is an index of ConfigCfgDacSrc

  ConfigurableFloat set{"set", 0, -5, 5, false};  // shown where the source is "set"
  ConfigCfgDacSrc src;
  ConfigurableFloat low{"low", 0};
  ConfigurableFloat high{"high", 0};
};

class ConfigControl : public ConfigurableMultipleChoice {
 public:
  ConfigControl();  // tag "control"
  explicit ConfigControl(std::string name);

 private:
  inline static Choices _choices;
};

// No section has one.
class ConfigOnOffControl : public ConfigurableMultipleChoice {
 public:
  ConfigOnOffControl();

 private:
  inline static Choices _choices;
};

// What both heaters have.
class ConfigMirrorHeater : public ConfigurableComposite {
 public:
  explicit ConfigMirrorHeater(std::string name);

  ConfigurableInteger heaterpower{"heaterpower", 100, 0, 100};
  ConfigControl control;
  ConfigurableTime_HourMinutes ontime{"ontime", 0};
  ConfigurableTime_HourMinutes offtime{"offtime", 0};
};

class ConfigTopHeater : public ConfigMirrorHeater {
 public:
  ConfigTopHeater();

  ConfigurableFloat deltat{"deltat", 0, -5, 5, false};
};

class ConfigBottomHeater : public ConfigMirrorHeater {
 public:
  ConfigBottomHeater();

  ConfigurableInteger signalstrengthlevel{"signalstrengthlevel", 40, 0, 100};
};

class ConfigHeater : public ConfigurableComposite {
 public:
  ConfigHeater();

  ConfigTopHeater top;
  ConfigBottomHeater bottom;
};

class ConfigLaserCoolerAutoManual : public ConfigurableMultipleChoice {
 public:
  ConfigLaserCoolerAutoManual();

 private:
  inline static Choices _choices;
};

class ConfigLaserCooler : public ConfigurableComposite {
 public:
  ConfigLaserCooler();

  ConfigLaserCoolerAutoManual control;
  ConfigurableFloat temp{"temp", 25, 0, 50, false};
  ConfigurableInteger daccount{"daccount", 0, 0, 65535};
};

class ConfigLaserBlockOnOff : public ConfigurableMultipleChoice {
 public:
  ConfigLaserBlockOnOff();

 private:
  inline static Choices _choices;
};

class ConfigLaserBlock : public ConfigurableComposite {
 public:
  ConfigLaserBlock();

  ConfigLaserBlockOnOff control;
  ConfigurableFloat temp{"temp", 22, 0, 50, false};
  ConfigurableInteger daccount{"daccount", 0, 0, 65535};
};

class ConfigLineLock : public ConfigurableComposite {
 public:
  ConfigLineLock();

  ConfigLaserCooler lasercooler;
  ConfigLaserBlock laserblock;
};

class ConfigSpinMirror : public ConfigurableComposite {
 public:
  ConfigSpinMirror();

  ConfigControl control;
  ConfigurableTime_HourMinutes ontime{"ontime", 0};
  ConfigurableTime_HourMinutes offtime{"offtime", 0};
  ConfigurableInteger duration{"duration", 30, 0, 300};
  ConfigurableTime_HourMinutes repeatinterval{"repeatinterval", 0};
  ConfigurableInteger signalstrengthlevel{"signalstrengthlevel", 40, 0, 100};
};

class ConfigCfg : public ConfigurableComposite {
 public:
  ConfigCfg();

  // The section of an input by its number, which counts from 1. Throws std::runtime_error for one that isn't there.
  const ConfigCfgAux& Auxiliary(int number) const;

  ConfigCfgTempRange temprange;
  ConfigCfgClock clock;
  ConfigCfgNetwork network;
  std::vector<std::shared_ptr<ConfigCfgAux>> aux;  // aux1 to aux8
  std::vector<std::shared_ptr<ConfigCfgDac>> dac;  // dac1 to dac6
  ConfigHeater heater;
  ConfigLineLock linelock;
  ConfigSpinMirror spinmirror;
  ConfigurableInteger sdmaddress{"sdmaddress", 0, 0, 15};
};

class ConfigCPLDMotor : public ConfigurableComposite {
 public:
  ConfigCPLDMotor();

  ConfigurableInteger control{"control", 0};
  ConfigurableInteger desired_pos{"desired_pos", 0};
  ConfigurableInteger actual_pos{"actual_pos", 0};
};

class ConfigCPLD : public ConfigurableComposite {
 public:
  ConfigCPLD();

  ConfigurableString ver{"ver", ""};
  ConfigCPLDMotor motor;
};

// One-shot commands, as in ConfigCmd.
class ConfigFactoryCmd : public ConfigurableComposite {
 public:
  ConfigFactoryCmd();

  ConfigurableBool commit{"commit", false};
  ConfigurableBool rollback{"rollback", false};
};

class ConfigFactory : public ConfigurableComposite {
 public:
  ConfigFactory();

  ConfigurableString serialnumber{"serialnumber", "ch4-XXXX"};
  ConfigurableInteger lasermoddepth{"lasermoddepth", 7000};
  ConfigurableFloat laserstarttemp{"laserstarttemp", 22, 0, 50, false};
  ConfigurableFloat blockstarttemp{"blockstarttemp", 30, 0, 50, false};
  ConfigurableFloat blockstarttemplowrange{"blockstarttemplowrange", 5, 0, 50, false};
  ConfigurableFloat rssidropthresh{"rssidropthresh", 1, 0, 100, false};
  ConfigurableFloat pzero{"pzero", 0};
  ConfigurableFloat pspan{"pspan", 1};
  ConfigurableInteger samplegain{"samplegain", 0, 0};
  ConfigurableInteger refgain{"refgain", 0, 0};
  ConfigurableInteger mirrorpos{"mirrorpos", 0, 0, 1023};
  ConfigurableInteger offset1{"offset1", 0, 0, 65535};
  ConfigurableInteger delta1{"delta1", 0, 0, 65535};
  ConfigurableInteger offset2{"offset2", 0, 0, 65535};
  ConfigurableInteger delta2{"delta2", 0, 0, 65535};
  ConfigurableInteger dither{"dither", 0, 0, 65535};
  ConfigurableInteger sampledcoffset{"sampledcoffset", 0, 0, 65535};
  ConfigurableInteger sampleacoffset{"sampleacoffset", 0, -32768, 32767};
  ConfigurableInteger sampleopticaloffset{"sampleopticaloffset", 0, -32768, 32767};
  ConfigFactoryCmd cmd;
};

class Config5500 : public ConfigDocumentSection {
 public:
  Config5500();

  // Whether anything has changed that belongs to the configuration: commands, the CPLD's state and replies don't.
  bool IsConfigChanged() const;

  ConfigFactory factory;  // stands first, for serialnumber refers to it
  ConfigurableString ver{"ver", ""};
  ConfigurableString name{"name", ""};
  ConfigurableStringProxyReadOnly serialnumber{"serialnumber", factory.serialnumber};
  ConfigurableString ipaddress{"ipaddress", ""};
  ConfigOutput output;
  ConfigBox box;
  ConfigCfg cfg;
  ConfigCal cal;
  ConfigCmd cmd;
  ConfigCPLD cpld;
};
