#include "config/doc5500common.h"

#include <cstdint>
#include <ctime>
#include <initializer_list>
#include <limits>
#include <locale>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "config/fields.h"
#include "runtime/errnoexcept.h"

ConfigDocumentSection::ConfigDocumentSection(std::string name) : ConfigurableComposite(std::move(name)) {
  ack._set_enabled(false);
  error._set_enabled(false);
}

std::ostream& ConfigDocumentSection::WriteError(std::ostream& out, const std::string& text) const {
  error.set(text);
  return error.configuration(out);
}

ConfigAutoManual::ConfigAutoManual(std::string name, int index)
    : ConfigurableMultipleChoice(std::move(name), _filled(_choices, {"auto", "manual"}), index) {}

ConfigCfgClockPTP::ConfigCfgClockPTP()
    : ConfigurableMultipleChoice("ptp", _filled(_choices, {"auto", "slaveonly", "preferred"}), 0) {}

ConfigTimezone::ConfigTimezone() : ConfigurableMultipleChoice("zone", _filled(_choices, {"UTC"}), 0) {}

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

constexpr int kFirstYear = 1900;  // of tm_year

// What stands behind the third number is not looked at.
bool Read(const std::string& text, char separator, std::initializer_list<int*> numbers) {
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  return ReadFields(in, separator, numbers);
}

}  // namespace

ConfigCfgClock::ConfigCfgClock() : ConfigurableComposite("clock") {
  _add_all({&time, &date, &zone, &ptp});
}

long ConfigCfgClock::TimeDate() const {
  constexpr int kLeast = std::numeric_limits<int>::min() + kFirstYear;
  int year = 0;
  int month = 0;
  std::tm local{};
  if (!Read(date.get(), '-', {&year, &month, &local.tm_mday}) || year < kLeast || month < kLeast)
    throw std::runtime_error("Invalid date format (should be YYYY-MM-DD): " + date.get());
  if (!Read(time.get(), ':', {&local.tm_hour, &local.tm_min, &local.tm_sec}))
    throw std::runtime_error("Invalid time format (should be HH:MM:SS): " + time.get());
  local.tm_year = year - kFirstYear;
  local.tm_mon = month - 1;
  local.tm_isdst = -1;
  const std::time_t seconds = std::mktime(&local);
  // Where a long is the narrower one it ends as mktime itself does.
  return std::in_range<long>(seconds) ? static_cast<long>(seconds) : -1;
}

void ConfigCfgClock::TimeDate(long seconds) {
  const std::time_t moment = seconds;
  const std::tm* local = std::localtime(&moment);
  if (local == nullptr) throw ErrnoError("Invalid time");
  const std::string hms = WrittenFields(':', {{local->tm_hour, 2}, {local->tm_min, 2}, {local->tm_sec, 2}});
  const std::int64_t year = std::int64_t{local->tm_year} + kFirstYear;
  const std::string ymd = WrittenFields('-', {{year, 4}, {local->tm_mon + 1, 2}, {local->tm_mday, 2}});
  time.set(hms);
  date.set(ymd);
}

ConfigCfgNetwork::ConfigCfgNetwork() : ConfigurableComposite("network") {
  _add_all({&name, &configuration, &ipaddress, &netmask, &gateway});
}
