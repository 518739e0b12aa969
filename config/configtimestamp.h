// The date and time items: each holds a Timestamp and shows a part of it.
//
//   ConfigurableTimestamp         YYYY-MM-DD HH:MM:SS, as Timestamp reads and writes it
//   ConfigurableTime              HH:MM:SS, seconds since midnight
//   ConfigurableTime_HourMinutes  HH:MM, seconds since midnight
//   ConfigurableDate              YYYY-MM-DD, that day's midnight
//   ConfigurableDate_YearMonth    YYYY-MM, the day before the first of that month, and so shown as the month before:
//                                 meant so
//
// Fields have no range of their own: 25:00:00 is read without a word, and carried over. What isn't read leaves the
// value as it was and the stream failed.

#pragma once

#include <string>

#include "config/configurable.h"
#include "runtime/timestamp.h"

class ConfigurableTimestamp : public Configurable {
 public:
  ConfigurableTimestamp(std::string name, Timestamp value);

  Timestamp get() const { return _value; }
  // Marks a change only when the value differs from the present one.
  void set(Timestamp value);

  void set_to_default() override { set(_default); }
  std::istream& read(std::istream& in, std::ostream& errors) override;
  std::ostream& write(std::ostream& out) const override;
  std::ostream& write_doctype(std::ostream& out) const override;
  void do_accept(ConfigurableVisitor& visitor) override;

 private:
  Timestamp _value;
  const Timestamp _default;
};

class ConfigurableTime : public ConfigurableTimestamp {
 public:
  using ConfigurableTimestamp::ConfigurableTimestamp;
  std::istream& read(std::istream& in, std::ostream& errors) override;
  std::ostream& write(std::ostream& out) const override;
  std::ostream& write_doctype(std::ostream& out) const override;
  void do_accept(ConfigurableVisitor& visitor) override;
};

class ConfigurableTime_HourMinutes : public ConfigurableTimestamp {
 public:
  using ConfigurableTimestamp::ConfigurableTimestamp;
  std::istream& read(std::istream& in, std::ostream& errors) override;
  std::ostream& write(std::ostream& out) const override;
  std::ostream& write_doctype(std::ostream& out) const override;
  void do_accept(ConfigurableVisitor& visitor) override;
};

class ConfigurableDate : public ConfigurableTimestamp {
 public:
  using ConfigurableTimestamp::ConfigurableTimestamp;
  std::istream& read(std::istream& in, std::ostream& errors) override;
  std::ostream& write(std::ostream& out) const override;
  std::ostream& write_doctype(std::ostream& out) const override;
  void do_accept(ConfigurableVisitor& visitor) override;
};

class ConfigurableDate_YearMonth : public ConfigurableTimestamp {
 public:
  using ConfigurableTimestamp::ConfigurableTimestamp;
  std::istream& read(std::istream& in, std::ostream& errors) override;
  std::ostream& write(std::ostream& out) const override;
  std::ostream& write_doctype(std::ostream& out) const override;
  void do_accept(ConfigurableVisitor& visitor) override;
};
