// A walk over a tree of configurable items, by kind.

#pragma once

class Configurable;
class ConfigurableComposite;
class ConfigurableMultipleChoice;
class ConfigurableFloat;
class ConfigurableDouble;
class ConfigurableInteger;
class ConfigurableBool;
class ConfigurableString;
class ConfigurableTimestamp;
class ConfigurableTime;
class ConfigurableTime_HourMinutes;
class ConfigurableDate;
class ConfigurableDate_YearMonth;

// Handed to do_accept of an item. A composite is bracketed by its Begin and End, with every child between them,
// disabled ones too. Attributes are walked only where VisitConfigurableAttributesBegin returns true; their End comes
// in either case. Items of a kind without an operation of its own reach VisitConfigurable.
class ConfigurableVisitor {
 public:
  virtual ~ConfigurableVisitor() = default;

  virtual void VisitConfigurable(Configurable&) {}
  virtual bool VisitConfigurableAttributesBegin() { return false; }
  virtual void VisitConfigurableAttributesEnd() {}
  virtual void VisitConfigurableCompositeBegin(ConfigurableComposite&) {}
  virtual void VisitConfigurableCompositeEnd(ConfigurableComposite&) {}
  virtual void VisitConfigurableMultipleChoice(ConfigurableMultipleChoice&) {}
  virtual void VisitConfigurableFloat(ConfigurableFloat&) {}
  virtual void VisitConfigurableDouble(ConfigurableDouble&) {}
  virtual void VisitConfigurableInteger(ConfigurableInteger&) {}
  virtual void VisitConfigurableBool(ConfigurableBool&) {}
  virtual void VisitConfigurableString(ConfigurableString&) {}
  virtual void VisitConfigurableTimestamp(ConfigurableTimestamp&) {}
  virtual void VisitConfigurableTime(ConfigurableTime&) {}
  virtual void VisitConfigurableTime_HourMinutes(ConfigurableTime_HourMinutes&) {}
  virtual void VisitConfigurableDate(ConfigurableDate&) {}
  virtual void VisitConfigurableDate_YearMonth(ConfigurableDate_YearMonth&) {}
};
