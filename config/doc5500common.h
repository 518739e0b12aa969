// What the logger's and the analyser's documents share: their clock and network sections, and the items only these use.
//
// Members bear the names of their tags. The sections carry values; setting the clock or the network is up to the owner
// of the document.

#pragma once

#include <iosfwd>
#include <string>

#include "config/configbuiltin.h"
#include "config/configurable.h"
#include "net/socketaddress.h"

// The one section below the root of a document. It holds the two items of the document's replies, which are hidden: in
// no output of the tree, and out of reach for documents. The derived section adds them, `ack` first and `error` last.
class ConfigDocumentSection : public ConfigurableComposite {
 public:
  explicit ConfigDocumentSection(std::string name);

  // Each writes one of the two in context: an acknowledgement, or a message, which marks the document as changed.
  std::ostream& WriteAck(std::ostream& out) const { return ack.configuration(out); }
  std::ostream& WriteError(std::ostream& out, const std::string& text) const;

  ConfigurableBool ack{"ack", true};
  mutable ConfigurableString error{"error", ""};  // a reply, and none of the settings that const protects
};

class ConfigAutoManual : public ConfigurableMultipleChoice {
 public:
  ConfigAutoManual(std::string name, int index);

 private:
  inline static Choices _choices;
};

// How the clock takes part in the precision time protocol (IEEE 1588).
class ConfigCfgClockPTP : public ConfigurableMultipleChoice {
 public:
  ConfigCfgClockPTP();

 private:
  inline static Choices _choices;
};

// The name of a time zone. The list starts as "UTC" alone; whoever lists the zones of the system sends the others in a
// document, as a description: <zone>{UTC|Europe/Berlin}</zone>.
class ConfigTimezone : public ConfigurableMultipleChoice {
 public:
  ConfigTimezone();

  // The first zone of this name; an unknown one is ignored.
  void set_str(const std::string& text) { set(_find(text)); }

  // Replaces the list for all instances and touches nothing else: indexes stay and no change is marked. Leaves the
  // stream failed, so that the rest of the element is skipped without a reply; that is meant.
  std::istream& read_doctype(std::istream& in, std::ostream& errors) override;

 private:
  inline static Choices _choices;
};

// An address without a port, of whatever family its text has. Text that is no address throws SocketError out of
// configure, also where errors are answered; the value is then what it was.
class ConfigIPAddress : public Configurable {
 public:
  ConfigIPAddress(std::string name, const SocketAddress& value);
  ConfigIPAddress(std::string name, const std::string& value);  // throws SocketError for text that is no address

  const SocketAddress& get() const { return _value; }

  void set_to_default() override { set(_default); }
  std::istream& read(std::istream& in, std::ostream& errors) override;
  std::ostream& write(std::ostream& out) const override;
  std::ostream& write_doctype(std::ostream& out) const override;

  // Every way of setting the address comes through here, so that a derived item can refine it.
  virtual void set(const SocketAddress& value);

 private:
  SocketAddress _value;
  const SocketAddress _default;
};

// Local time by the zone in force. Time and date are taken as text; only TimeDate looks into it.
class ConfigCfgClock : public ConfigurableComposite {
 public:
  ConfigCfgClock();

  // Both as seconds since 1970-01-01 00:00:00 UTC. Fields beyond their range carry on, as mktime(3) has it. Throws
  // std::runtime_error for text that is not three numbers with "-" or ":" between them. -1 where the count is too
  // small.
  long TimeDate() const;
  // Throws ErrnoError for seconds that have no calendar date.
  void TimeDate(long seconds);

  ConfigurableString time{"time", "00:00:00"};
  ConfigurableString date{"date", "1970-01-01"};
  ConfigTimezone zone;
  ConfigCfgClockPTP ptp;
};

class ConfigCfgNetwork : public ConfigurableComposite {
 public:
  ConfigCfgNetwork();

  ConfigurableString name{"name", "ch4-xxxx"};
  ConfigAutoManual configuration{"configuration", 0};
  ConfigIPAddress ipaddress{"ipaddress", "192.168.1.95"};
  ConfigIPAddress netmask{"netmask", "255.255.255.0"};
  ConfigIPAddress gateway{"gateway", "192.168.1.1"};
};
