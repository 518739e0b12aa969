#include "config/doc5500common.h"

#include <array>
#include <cstdint>
#include <ctime>
#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "runtime/errnoexcept.h"

ConfigDocumentSection::ConfigDocumentSection(std::string name) : ConfigurableComposite(std::move(name)) {
  ack._set_enabled(false);
  error._set_enabled(false);
}

std::ostream& ConfigDocumentSection::WriteError(std::ostream& out, const std::string& text) const {
  error.set(text);
  return error.configuration(out);
}

ConfigurableMultipleChoice::Choices ConfigAutoManual::_choices;

ConfigAutoManual::ConfigAutoManual(std::string name, int index)
    : ConfigurableMultipleChoice(std::move(name), _choices, index) {
  if (_choices.empty()) _choices = {"auto", "manual"};
}

ConfigurableMultipleChoice::Choices ConfigCfgClockPTP::_choices;

ConfigCfgClockPTP::ConfigCfgClockPTP() : ConfigurableMultipleChoice("ptp", _choices, 0) {
  if (_choices.empty()) _choices = {"auto", "slaveonly", "preferred"};
}

ConfigurableMultipleChoice::Choices ConfigTimezone::_choices;

ConfigTimezone::ConfigTimezone() : ConfigurableMultipleChoice("zone", _choices, 0) {
  if (_choices.empty()) _choices = {"UTC"};
}

std::istream& ConfigTimezone::read_doctype(std::istream& in, std::ostream&) {
  _choices.clear();
  for (std::string zone; std::getline(in, zone, '|');) _choices.push_back(zone);
  return in;
}

ConfigIPAddress::ConfigIPAddress(std::string name, const SocketAddress& value)
    : Configurable(std::move(name)), _value(value), _default(value) {}

ConfigIPAddress::ConfigIPAddress(std::string name, const std::string& value)
    : ConfigIPAddress(std::move(name), SocketAddress(value)) {}

void ConfigIPAddress::set(const SocketAddress& value) {
  if (value == _value) return;
  _value = value;
  _set_changed(true);
}

std::istream& ConfigIPAddress::read(std::istream& in, std::ostream& errors) {
  std::string text;
  if (std::getline(in, text, '\0'))
    set(SocketAddress(text));
  else
    errors << "unable to read IP address\n";
  return in;
}

std::ostream& ConfigIPAddress::write(std::ostream& out) const {
  return out << _value.Presentation();
}
std::ostream& ConfigIPAddress::write_doctype(std::ostream& out) const {
  return out << "int.int.int.int";
}

namespace {

using ThreeNumbers = std::array<int, 3>;

constexpr int kFirstYear = 1900;  // of tm_year

// What stands behind the third number is not looked at.
bool Read(const std::string& text, char separator, ThreeNumbers& numbers) {
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  char first = 0;
  char second = 0;
  return (in >> numbers[0] >> first >> numbers[1] >> second >> numbers[2]) && first == separator && second == separator;
}

std::string Written(std::int64_t first, int width, char separator, int second, int third) {
  std::ostringstream out;
  out.imbue(std::locale::classic());
  out << std::setfill('0') << std::setw(width) << first;
  for (const int number : {second, third}) out << separator << std::setw(2) << number;
  return out.str();
}

}  // namespace

ConfigCfgClock::ConfigCfgClock() : ConfigurableComposite("clock") {
  add(time);
  add(date);
  add(zone);
  add(ptp);
}

long ConfigCfgClock::TimeDate() const {
  constexpr int kLeast = std::numeric_limits<int>::min() + kFirstYear;
  ThreeNumbers ymd;
  if (!Read(date.get(), '-', ymd) || ymd[0] < kLeast || ymd[1] < kLeast)
    throw std::runtime_error("Invalid date format (should be YYYY-MM-DD): " + date.get());
  ThreeNumbers hms;
  if (!Read(time.get(), ':', hms)) throw std::runtime_error("Invalid time format (should be HH:MM:SS): " + time.get());

  std::tm local{};
  local.tm_year = ymd[0] - kFirstYear;
  local.tm_mon = ymd[1] - 1;
  local.tm_mday = ymd[2];
  local.tm_hour = hms[0];
  local.tm_min = hms[1];
  local.tm_sec = hms[2];
  local.tm_isdst = -1;
  return std::mktime(&local);
}

void ConfigCfgClock::TimeDate(long seconds) {
  const std::time_t moment = seconds;
  const std::tm* local = std::localtime(&moment);
  if (local == nullptr) throw ErrnoError("Invalid time");
  const std::string hms = Written(local->tm_hour, 2, ':', local->tm_min, local->tm_sec);
  const std::string ymd = Written(std::int64_t{local->tm_year} + kFirstYear, 4, '-', local->tm_mon + 1, local->tm_mday);
  time.set(hms);
  date.set(ymd);
}

ConfigCfgNetwork::ConfigCfgNetwork() : ConfigurableComposite("network") {
  add(name);
  add(configuration);
  add(ipaddress);
  add(netmask);
  add(gateway);
}
