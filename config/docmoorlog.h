// The logger's configuration document: the tree that the daemon keeps, and that the entry tool prints.
//
// The sections only carry their values; who reads them, and what a command does, is up to the owner of the document.
// Members bear the names of their tags, so that code reads like the document: doc.moorlog.cfg.logger.loggertable.

#pragma once

#include <iosfwd>
#include <map>
#include <string>

#include "config/configbuiltin.h"
#include "config/configurable.h"
#include "config/doc5500common.h"

class ConfigOutputMoorlog : public ConfigurableComposite {
 public:
  ConfigOutputMoorlog();

  ConfigurableBool status{"status", false};
  ConfigurableBool dataclock{"dataclock", false};
};

class ConfigCfgLogger : public ConfigurableComposite {
 public:
  ConfigCfgLogger();

  ConfigurableString loggeraddress{"loggeraddress", ""};
  ConfigurableString loggertable{"loggertable", "MoorcloudData"};
  ConfigurableString moorcloudaddress{"moorcloudaddress", ""};
  ConfigurableString moorcloudapikey{"moorcloudapikey", ""};
};

// The serial port of the data acquisition modules.
class ConfigCfgDAQMPort : public ConfigurableMultipleChoice {
 public:
  ConfigCfgDAQMPort();

 private:
  inline static Choices _choices;
};

class ConfigCfgDAQM : public ConfigurableComposite {
 public:
  ConfigCfgDAQM();

  ConfigCfgDAQMPort port;
};

class ConfigCfgGPSType : public ConfigurableMultipleChoice {
 public:
  ConfigCfgGPSType();

 private:
  inline static Choices _choices;
};

class ConfigCfgMoorlog : public ConfigurableComposite {
 public:
  ConfigCfgMoorlog();

  ConfigurableString head{"head", ""};
  ConfigurableString soil{"soil", ""};
  ConfigCfgLogger logger;
  ConfigCfgDAQM daqm;
  ConfigurableInteger sonicbaud{"sonicbaud", 57600, 0, 115200};  // bit/s
  ConfigCfgGPSType gpstype;
  ConfigCfgClock clock;
  ConfigCfgNetwork network;
};

// One-shot commands: a document sets one to true, and it is false again before the next document.
class ConfigCmdMoorlog : public ConfigurableComposite {
 public:
  ConfigCmdMoorlog();

  ConfigurableBool logusbstart{"logusbstart", false};
  ConfigurableBool logusbstop{"logusbstop", false};
  ConfigurableBool startdaqmlivemeasure{"startdaqmlivemeasure", false};
  ConfigurableBool stopdaqmlivemeasure{"stopdaqmlivemeasure", false};
  ConfigurableBool ejectusb{"ejectusb", false};
  ConfigurableBool reboot{"reboot", false};
};

class ConfigFactoryMoorlog : public ConfigurableComposite {
 public:
  ConfigFactoryMoorlog();

  ConfigurableString serialnumber{"serialnumber", "ML-XXXX"};
};

class ConfigMoorlog : public ConfigDocumentSection {
 public:
  ConfigMoorlog();

  // Whether anything has changed that belongs to the configuration: commands, factory values and replies don't.
  bool IsConfigChanged() const;

  ConfigFactoryMoorlog factory;  // stands first, for serialnumber refers to it
  ConfigurableString ver{"ver", ""};
  ConfigurableString name{"name", ""};
  ConfigurableStringProxyReadOnly serialnumber{"serialnumber", factory.serialnumber};
  ConfigurableString ipaddress{"ipaddress", ""};
  ConfigOutputMoorlog output;
  ConfigCfgMoorlog cfg;
  ConfigCmdMoorlog cmd;
};

// The document. Change marks are never cleared here: the owner does that with _set_changed(false), once it has dealt
// with them.
class DocMoorlog : public ConfigurableComposite {
 public:
  DocMoorlog();

  // Listeners are not owned; each has to outlive the document, or be replaced under its key. The key only sets the
  // order of notification. A listener may insert others from within its callback.
  void insert(const std::string& key, ConfigurableListener& listener) { _listeners[key] = &listener; }

  // When anything is marked as changed: tells every listener, with this document as the event's source.
  void NotifyListeners();

  // Applies one document as configure does, after all commands were set back, and notifies the listeners.
  std::ostream& configure_and_send_events(std::istream& in, std::ostream& out);

  std::ostream& Ack(std::ostream& out) const { return moorlog.WriteAck(out); }
  std::ostream& Error(std::ostream& out, const std::string& text) const { return moorlog.WriteError(out, text); }

  ConfigMoorlog moorlog;

 private:
  std::map<std::string, ConfigurableListener*> _listeners;
};
