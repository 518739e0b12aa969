// Gives every item of a tree one of two values, and counts the items. Clocks keep to dates and times.

#pragma once

#include <sstream>
#include <string>

#include "config/configbuiltin.h"
#include "config/configtimestamp.h"
#include "config/configvisitor.h"

struct Setter : ConfigurableVisitor {
  explicit Setter(int which) : turn(which) {}
  void VisitConfigurable(Configurable& item) override {  // addresses, and what can't be set
    std::istringstream in(turn == 0 ? "10.1.2.3" : "10.3.2.1");
    item.read(in, in_vain);
    ++count;
  }
  void VisitConfigurableBool(ConfigurableBool& item) override { item.set(turn == 0), ++count; }
  void VisitConfigurableInteger(ConfigurableInteger& item) override { item.set(turn), ++count; }
  void VisitConfigurableFloat(ConfigurableFloat& item) override { item.set(static_cast<float>(turn)), ++count; }
  void VisitConfigurableString(ConfigurableString& item) override {
    const std::string& name = item.get_name();
    item.set(name == "date"   ? (turn == 0 ? "2024-05-01" : "2024-05-02")
             : name == "time" ? (turn == 0 ? "12:30:00" : "12:31:00")
                              : (turn == 0 ? "one" : "two"));
    ++count;
  }
  void VisitConfigurableMultipleChoice(ConfigurableMultipleChoice& item) override { item.set(turn), ++count; }
  void VisitConfigurableTimestamp(ConfigurableTimestamp& item) override { item.set(60.0 + 60 * turn), ++count; }
  void VisitConfigurableTime_HourMinutes(ConfigurableTime_HourMinutes& item) override {
    VisitConfigurableTimestamp(item);
  }

  const int turn;
  int count = 0;
  std::ostringstream in_vain;
};
