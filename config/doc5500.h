// The analyser's configuration document, as the head describes itself in it and as the logger keeps its copy.
//
// docs/configuration.md shows it with worked dialogues; its sections stand in config/config5500.h.

#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "config/config5500.h"
#include "config/configurable.h"
#include "net/socketaddress.h"

// Change marks are never cleared here: the owner does that with _set_changed(false), once it has dealt with them.
class Doc5500 : public ConfigurableComposite {
 public:
  // What one document has changed, operation by operation. Each enumeration is the index of its item's choice. Times
  // are whole seconds since midnight, as far as an int goes; what is no number is 0.
  class Listener {
   public:
    enum TempRange { TempRangeLow, TempRangeHigh };
    enum Control { ControlAuto, ControlOn, ControlOff };
    enum LC_Control { LC_Auto, LC_Manual, LC_DACCount };  // of the laser's cooler
    enum BT_Control { BT_Off, BT_On, BT_DACCount };       // of the laser's block
    enum AuxType { AuxPoly, AuxSteinhart, AuxLinearRT };

    virtual ~Listener() noexcept(false) = default;
    virtual void GotTempRange(TempRange) {}
    virtual void GotOutputRate(int /*rate*/) {}  // data lines a second
    virtual void GotCalCH4ZeroCmd() {}
    virtual void GotCalCH4SpanCmd(float /*concentration*/) {}
    virtual void GotCalCommitCmd() {}
    virtual void GotCalRollbackCmd() {}
    virtual void GotCalAbortCmd() {}
    virtual void GotCalChanged() {}
    virtual void GotPollCmd() {}
    virtual void GotPollTestCmd() {}
    virtual void GotLineLockCmd() {}
    virtual void GotLogUSBStartCmd() {}
    virtual void GotLogUSBStopCmd() {}
    virtual void GotTopHeaterConfig(int /*power*/, Control, float /*delta*/, int /*on*/, int /*off*/) {}
    virtual void GotBottomHeaterConfig(int /*power*/, Control, int /*signal*/, int /*on*/, int /*off*/) {}
    virtual void GotSpinMotorConfig(Control, int /*signal*/, int /*on*/, int /*off*/, int /*duration*/,
                                    int /*repeat*/) {}
    virtual void GotLineLockConfig(LC_Control, float /*temperature*/, uint16_t /*count*/, BT_Control,
                                   float /*temperature*/, uint16_t /*count*/) {}
    virtual void GotClockSetting(long /*seconds*/) {}  // since 1970-01-01 00:00:00 UTC
    virtual void GotTimezoneSetting(std::string /*zone*/) {}
    virtual void GotPTPSetting(int /*index*/) {}
    virtual void GotNetworkSetting(std::string /*name*/, bool /*automatic*/, const SocketAddress& /*address*/,
                                   const SocketAddress& /*netmask*/, const SocketAddress& /*gateway*/) {}
    virtual void GotAuxConfig(int /*number*/, AuxType, float /*a0*/, float /*a1*/, float /*a2*/, float /*a3*/) {}
    virtual void GotFactoryChanged() {}
    virtual void GotFactoryCommitCmd() {}
    virtual void GotFactoryRollbackCmd() {}
    virtual void GotRebootCmd() {}
    virtual void StaticConfigChanged() {}  // box, or what of output and cfg the head keeps
  };

  Doc5500();

  // Not owned, may be null; it has to outlive the document or be replaced, which it may be from inside its own
  // operations: what is left to tell then goes to the new one. Returns the one it replaces.
  Listener* RegisterListener(Listener* listener);

  // Applies one document as configure does, after all commands were set back, and tells the listener what is marked as
  // changed, in a fixed order. The marks count, not the document: one that wasn't cleared is told again, and so is what
  // a document changed in front of its error.
  //
  // Throws what configure and the listener throw, and std::runtime_error for a date or a time of day in `clock` that is
  // none. What was still to be told is then lost.
  std::ostream& configure_and_send_events(std::istream& in, std::ostream& out);

  // Each writes one item in context: an acknowledgement, or a message, which marks the document as changed.
  std::ostream& Ack(std::ostream& out) const { return tn5500.WriteAck(out); }
  std::ostream& Error(std::ostream& out, const std::string& text) const { return tn5500.WriteError(out, text); }

  Config5500 tn5500;

 private:
  template <typename... Parameters, typename... Arguments>
  void _Tell(void (Listener::*operation)(Parameters...), Arguments&&... arguments);
  // Those that return a bool say whether what they told belongs to the static configuration.
  bool _TellOutput();
  bool _TellCfg();
  void _TellHeater();
  void _TellSpinMirror();
  void _TellLineLock();
  void _TellClock();
  void _TellNetwork();
  bool _TellAuxiliaries();
  void _TellFactory();
  void _TellCommands();

  Listener* _listener = nullptr;
};
