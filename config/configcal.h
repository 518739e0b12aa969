// The calibration of the methane channel: the zero and the span in force, and the records of how they came about.

#pragma once

#include <string>

#include "config/configbuiltin.h"
#include "config/configdynamic.h"
#include "config/configtimestamp.h"
#include "config/configurable.h"
#include "runtime/timestamp.h"

// One calibration. Two are the same when all four values are; the tag doesn't count.
class ConfigCalRecord : public ConfigurableComposite {
 public:
  explicit ConfigCalRecord(const std::string& name);
  // With the tag "record" and the values as defaults.
  ConfigCalRecord(Timestamp when, const std::string& kind, float zero, float span);

  // Takes the values.
  ConfigCalRecord& operator=(const ConfigCalRecord& other);
  bool operator==(const ConfigCalRecord& other) const;

  ConfigurableTimestamp time;
  ConfigurableString type;  // holds "CH4 Zero" or "CH4 Span"
  ConfigurableFloat ch4zero;
  ConfigurableFloat ch4span;

 private:
  ConfigCalRecord(const std::string& name, Timestamp when, const std::string& kind, float zero, float span);
};

class ConfigCalHistory : public ConfigurableCompositeDynamic<ConfigCalRecord> {
 public:
  ConfigCalHistory();

  // Keeps the records of the calibrations in force, so at most two: the last one of a span of exactly `span_time`, then
  // the last one of a zero of exactly `zero_time`, each with the tag it had. All other records go. Marks a change
  // unless the list was empty.
  void ClearOldRecords(Timestamp zero_time, Timestamp span_time);
};

class ConfigCal : public ConfigurableComposite {
 public:
  ConfigCal();

  // By the times of the last zero and the last span. When, is up to the owner of the document.
  void ClearOldHistoryRecords();

  ConfigurableFloat ch4zero{"ch4zero", 0};
  ConfigurableFloat ch4span{"ch4span", 1};
  ConfigurableFloat ch4spanconc{"ch4spanconc", 2};  // what a span command is to be told
  ConfigurableTimestamp ch4lastzero{"ch4lastzero", 0};
  ConfigurableTimestamp ch4lastspan{"ch4lastspan", 0};
  ConfigCalHistory history;
};
