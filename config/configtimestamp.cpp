#include "config/configtimestamp.h"

#include <istream>
#include <ostream>
#include <utility>

#include "config/configvisitor.h"
#include "config/fields.h"

namespace {

constexpr char kTimeForm[] = "HH:MM:SS";
constexpr char kHourMinutesForm[] = "HH:MM";
constexpr char kDateForm[] = "YYYY-MM-DD";
constexpr char kYearMonthForm[] = "YYYY-MM";

// The whole seconds of the minute; 0 for a value so far out that it has none.
int SecondOf(const Timestamp& value) {
  const double second = value.sec();
  return second >= 0 && second < 60 ? static_cast<int>(second) : 0;
}

void TellForm(std::ostream& errors, const char* kind, const char* form) {
  errors << "unable to read " << kind << " (should be " << form << ")\n";
}

}  // namespace

ConfigurableTimestamp::ConfigurableTimestamp(std::string name, Timestamp value)
    : Configurable(std::move(name)), _value(value), _default(value) {}

void ConfigurableTimestamp::set(Timestamp value) {
  if (value == _value) return;
  _value = value;
  _set_changed(true);
}

std::istream& ConfigurableTimestamp::read(std::istream& in, std::ostream& errors) {
  if (Timestamp value; in >> value)
    set(value);
  else
    errors << "unable to read Timestamp\n";
  return in;
}

std::ostream& ConfigurableTimestamp::write(std::ostream& out) const {
  return out << _value;
}
std::ostream& ConfigurableTimestamp::write_doctype(std::ostream& out) const {
  return out << "YYYY-MM-DD HH:MM:SS.SS";
}
void ConfigurableTimestamp::do_accept(ConfigurableVisitor& visitor) {
  visitor.VisitConfigurableTimestamp(*this);
}

std::istream& ConfigurableTime::read(std::istream& in, std::ostream& errors) {
  int hour = 0;
  int minute = 0;
  int second = 0;
  if (ReadFields(in, ':', {&hour, &minute, &second}))
    set(hour * 3600.0 + minute * 60.0 + second);
  else
    TellForm(errors, "time", kTimeForm);
  return in;
}

std::ostream& ConfigurableTime::write(std::ostream& out) const {
  return out << WrittenFields(':', {{get().hour(), 2}, {get().min(), 2}, {SecondOf(get()), 2}});
}
std::ostream& ConfigurableTime::write_doctype(std::ostream& out) const {
  return out << kTimeForm;
}
void ConfigurableTime::do_accept(ConfigurableVisitor& visitor) {
  visitor.VisitConfigurableTime(*this);
}

std::istream& ConfigurableTime_HourMinutes::read(std::istream& in, std::ostream& errors) {
  int hour = 0;
  int minute = 0;
  if (ReadFields(in, ':', {&hour, &minute}))
    set(hour * 3600.0 + minute * 60.0);
  else
    TellForm(errors, "time", kHourMinutesForm);
  return in;
}

std::ostream& ConfigurableTime_HourMinutes::write(std::ostream& out) const {
  return out << WrittenFields(':', {{get().hour(), 2}, {get().min(), 2}});
}
std::ostream& ConfigurableTime_HourMinutes::write_doctype(std::ostream& out) const {
  return out << kHourMinutesForm;
}
void ConfigurableTime_HourMinutes::do_accept(ConfigurableVisitor& visitor) {
  visitor.VisitConfigurableTime_HourMinutes(*this);
}

std::istream& ConfigurableDate::read(std::istream& in, std::ostream& errors) {
  int year = 0;
  int month = 0;
  int day = 0;
  if (ReadFields(in, '-', {&year, &month, &day}))
    set(Timestamp(year, month, day, 0, 0, 0));
  else
    TellForm(errors, "date", kDateForm);
  return in;
}

std::ostream& ConfigurableDate::write(std::ostream& out) const {
  return out << WrittenFields('-', {{get().year(), 4}, {get().month(), 2}, {get().day(), 2}});
}
std::ostream& ConfigurableDate::write_doctype(std::ostream& out) const {
  return out << kDateForm;
}
void ConfigurableDate::do_accept(ConfigurableVisitor& visitor) {
  visitor.VisitConfigurableDate(*this);
}

std::istream& ConfigurableDate_YearMonth::read(std::istream& in, std::ostream& errors) {
  int year = 0;
  int month = 0;
  if (ReadFields(in, '-', {&year, &month}))
    set(Timestamp(year, month, 0, 0, 0, 0));  // the day 0 is meant
  else
    TellForm(errors, "date", kYearMonthForm);
  return in;
}

std::ostream& ConfigurableDate_YearMonth::write(std::ostream& out) const {
  return out << WrittenFields('-', {{get().year(), 4}, {get().month(), 2}});
}
std::ostream& ConfigurableDate_YearMonth::write_doctype(std::ostream& out) const {
  return out << kYearMonthForm;
}
void ConfigurableDate_YearMonth::do_accept(ConfigurableVisitor& visitor) {
  visitor.VisitConfigurableDate_YearMonth(*this);
}
