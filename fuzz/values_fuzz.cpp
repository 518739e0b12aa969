// Any text into an item of each kind, beside a plain second form of it: the value, how it is written, what is
// complained about, whether the text failed, and when a change is marked. Each line is read once and so has the value
// before it behind it; an empty line sets the defaults.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <limits>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "config/configbuiltin.h"
#include "config/configtimestamp.h"
#include "config/doc5500common.h"

namespace {

const std::vector<std::string> kFruits = {"apple", "banana", "a b"};

// What a text says to an item of a kind: a value, as the item writes it, or else a complaint.
struct Said {
  std::optional<std::string> value = {};
  std::string complaint = {};
  bool marks = false;  // a change, also when the value is the old one
  bool fails = true;   // without a value
};

template <class... Arguments>
std::string Printed(const char* form, Arguments... arguments) {
  char text[80];
  std::snprintf(text, sizeof text, form, arguments...);
  return text;
}

std::string Whole(const std::string& text) {
  return text.substr(0, text.find('\0'));
}

std::string FirstWord(const std::string& text) {
  std::string word;
  std::istringstream(text) >> word;
  return word;
}

Said Bool(const std::string& text) {
  const std::string word = FirstWord(text);
  if (word.empty()) return {{}, "unable to read bool"};
  return word == "true" || word == "false" ? Said{word} : Said{{}, "invalid bool", false, false};
}

Said Integer(const std::string& text, std::int32_t least, std::int32_t most) {
  size_t at = std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size());
  const bool negative = text.substr(at, 1) == "-";
  at += text.find_first_of("+-", at) == at ? 1 : 0;
  const std::string digits = text.substr(at, std::min(text.find_first_not_of("0123456789", at), text.size()) - at);
  // A long double has no more digits than a double on some boards: so the bound is held against the text.
  const std::string bare = digits.substr(std::min(digits.find_first_not_of('0'), digits.size()));
  const std::string bound = negative ? "9223372036854775808" : "9223372036854775807";
  const bool within = bare.size() < bound.size() || (bare.size() == bound.size() && bare <= bound);
  if (digits.empty() || !within) return {{}, "unable to read integer"};
  const double amount = std::strtod(digits.c_str(), nullptr);
  const double value = negative ? 0 - amount : amount;
  return {Printed("%.0f", std::clamp<double>(value, least, most))};
}

Said Text(const std::string& text) {
  return text.empty() ? Said{{}, "unable to read string\n"} : Said{Whole(text)};
}

Said Choice(const std::string& text) {
  if (text.empty()) return {{}, "unable to read choice\n"};
  const std::string whole = Whole(text);
  const bool known = std::find(kFruits.begin(), kFruits.end(), whole) != kFruits.end();
  return known ? Said{whole} : Said{{}, "invalid option: " + whole + "\n", false, false};
}

// The longest start of the text that may be a number has to be one.
template <class Number>
std::optional<Number> NumberAt(const std::string& text) {
  constexpr const char* kDigits = "0123456789";
  const std::string rest = text.substr(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  const auto among = [&rest](size_t at, const char* set) {
    return at < rest.size() && rest[at] != '\0' && std::string(set).find(rest[at]) != std::string::npos;
  };
  size_t at = among(0, "+-") ? 1 : 0;
  bool point = false, digits = false;
  for (; among(at, kDigits) || (!point && among(at, ".")); ++at)
    if (among(at, "."))
      point = true;
    else
      digits = true;
  if (digits && among(at, "eE")) {
    at += among(at + 1, "+-") ? 2 : 1;
    while (among(at, kDigits)) ++at;
  }
  const std::string number = rest.substr(0, at);
  char* end = nullptr;
  const Number value = sizeof(Number) == 4 ? std::strtof(number.c_str(), &end) : std::strtod(number.c_str(), &end);
  if (number.empty() || *end != '\0' || std::isinf(value)) return {};
  return value;
}

template <class Number>
Said Real(const std::string& text, Number bound, bool refuses) {
  std::optional<Number> value = NumberAt<Number>(text);
  const std::string word = FirstWord(text), kind = sizeof(Number) == 4 ? "float" : "double";
  if (!value && (word == "inf" || word == "-inf")) value = word == "inf" ? INFINITY : -INFINITY;
  if (!value && word == "nan") value = NAN;
  if (!value) return {{}, "unable to read " + kind};
  if (std::isnan(*value)) return refuses ? Said{{}, "range error", false, false} : Said{"nan|nan", "", true};
  const double within = std::min(std::max(*value, -bound), bound);
  return {Printed("%g|%.17g", within, within)};
}

// So many whole numbers with that between them, and blanks anywhere.
std::optional<std::vector<int>> Fields(const std::string& text, char separator, int count) {
  const std::string form = std::string("%lld ") + separator + " %lld " + separator + " %lld";
  long long read[3] = {};
  if (std::sscanf(text.c_str(), form.c_str(), &read[0], &read[1], &read[2]) < count) return {};
  for (int i = 0; i < count; ++i)
    if (read[i] != static_cast<int>(read[i])) return {};
  return std::vector<int>(read, read + 3);
}

Said Time(const std::string& text, int count) {
  const auto fields = Fields(text, ':', count);
  if (!fields) return {{}, std::string("unable to read time (should be HH:MM") + (count == 3 ? ":SS" : "") + ")\n"};
  const double second = count == 3 ? fields->at(2) : 0;
  const Timestamp value = fields->at(0) * 3600.0 + fields->at(1) * 60.0 + second;
  const double shown = value.sec() >= 0 && value.sec() < 60 ? value.sec() : 0;
  const std::string minutes = Printed("%02d:%02d", value.hour(), value.min());
  return {minutes + (count == 3 ? Printed(":%02d", static_cast<int>(shown)) : "") + Printed("|%.17g", value.get())};
}

Said Date(const std::string& text, int count) {
  const auto fields = Fields(text, '-', count);
  if (!fields) return {{}, std::string("unable to read date (should be YYYY-MM") + (count == 3 ? "-DD" : "") + ")\n"};
  const Timestamp value(fields->at(0), fields->at(1), count == 3 ? fields->at(2) : 0, 0, 0, 0);
  const std::string month = Printed("%04d-%02d", value.year(), value.month());
  return {month + (count == 3 ? Printed("-%02d", value.day()) : "") + Printed("|%.17g", value.get())};
}

Said Moment(const std::string& text) {
  std::istringstream in(text);
  Timestamp value;
  if (!(in >> value)) return {{}, "unable to read Timestamp\n"};
  std::ostringstream out;
  out << value << Printed("|%.17g", value.get());
  return {out.str()};
}

Said Address(const std::string& text) {
  if (text.empty()) return {{}, "unable to read IP address\n"};
  try {
    return {SocketAddress(Whole(text)).Presentation()};
  } catch (const SocketError& error) {
    return {{}, error.what(), false, false};
  }
}

// As the item writes it, and with it the number that it holds, where that is more.
std::string Value(const Configurable& item) {
  std::ostringstream out;
  item.write(out);
  std::optional<double> held;
  if (const auto* time = dynamic_cast<const ConfigurableTimestamp*>(&item)) held = time->get().get();
  if (const auto* real = dynamic_cast<const ConfigurableFloat*>(&item)) held = real->get();
  if (const auto* real = dynamic_cast<const ConfigurableDouble*>(&item)) held = real->get();
  if (held && std::isnan(*held)) return out.str() + "|nan";
  return out.str() + (held ? Printed("|%.17g", *held) : "");
}

// A zero takes no other's sign.
bool IsOther(const std::string& one, const std::string& other) {
  return one != other && (one != "0|0" || other != "-0|-0") && (one != "-0|-0" || other != "0|0");
}

struct Pair {
  Configurable* item;
  std::function<Said(const std::string&)> second_form;
  std::string standard;  // what the default is from the second time on: within its range
  std::string value = Value(*item);
};

void Require(bool holds, const Pair& pair, const std::string& text, const std::string& complaint) {
  if (holds) return;
  std::fprintf(stderr, "%s \"%s\": %s, not %s; \"%s\"\n", pair.item->get_name().c_str(), text.c_str(),
               Value(*pair.item).c_str(), pair.value.c_str(), complaint.c_str());
  std::abort();
}

void Check(Pair& pair, const std::string& text) {
  Configurable& item = *pair.item;
  item._set_changed(false);
  std::istringstream in(text);
  std::ostringstream complaint;
  Said said;
  if (text.empty()) {
    item.set_to_default();
    said = {pair.standard};
  } else {
    said = pair.second_form(text);
    try {
      item.read(in, complaint);
    } catch (const std::exception& error) {
      complaint << error.what();
    }
  }
  const bool marks = said.value && (said.marks || IsOther(*said.value, pair.value));
  if (marks) pair.value = *said.value;
  Require(Value(item) == pair.value && item.has_changed() == marks, pair, text, complaint.str());
  Require(complaint.str().ends_with(said.complaint) && complaint.str().empty() == said.complaint.empty(), pair, text,
          complaint.str());
  Require(in.fail() == (!said.value && said.fails), pair, text, complaint.str());
}

// Both ways, as the system's calendar has it.
void CheckClock(const std::string& date, const std::string& time) {
  constexpr int kFirstYear = 1900, kLeast = std::numeric_limits<int>::min() + kFirstYear;
  ConfigCfgClock clock;
  clock.date.set(date);
  clock.time.set(time);
  clock._set_changed(false);
  const auto day = Fields(date, '-', 3), moment = Fields(time, ':', 3);
  std::string expected, told;
  if (!day || day->at(0) < kLeast || day->at(1) < kLeast) {
    expected = "Invalid date format (should be YYYY-MM-DD): " + date;
  } else if (!moment) {
    expected = "Invalid time format (should be HH:MM:SS): " + time;
  } else {
    std::tm local = {};
    local.tm_year = day->at(0) - kFirstYear, local.tm_mon = day->at(1) - 1, local.tm_mday = day->at(2);
    local.tm_hour = moment->at(0), local.tm_min = moment->at(1), local.tm_sec = moment->at(2);
    local.tm_isdst = -1;
    const std::int64_t made = std::mktime(&local);
    const bool fits = made == static_cast<long>(made);
    const std::time_t seconds = fits ? static_cast<long>(made) : -1;
    expected = std::to_string(seconds);
    local = *std::localtime(&seconds);
    const long year = long{local.tm_year} + kFirstYear;
    const std::string new_date =
        Printed(year < 0 ? "-%04ld-%02d-%02d" : "%04ld-%02d-%02d", std::labs(year), local.tm_mon + 1, local.tm_mday);
    const std::string new_time = Printed("%02d:%02d:%02d", local.tm_hour, local.tm_min, local.tm_sec);
    told = std::to_string(clock.TimeDate());
    clock.TimeDate(static_cast<long>(seconds));
    if (clock.date.get() != new_date || clock.time.get() != new_time) std::abort();
    if (clock.has_changed() != (new_date != date || new_time != time)) std::abort();
  }
  try {
    if (told.empty()) clock.TimeDate();
  } catch (const std::runtime_error& error) {
    told = error.what();
  }
  if (told != expected.c_str()) std::abort();  // what is told of a text ends with it
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  [[maybe_unused]] static const int zone = setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  constexpr auto kLeast = std::numeric_limits<std::int32_t>::min(), kMost = std::numeric_limits<std::int32_t>::max();
  ConfigurableBool flag("flag", true);
  ConfigurableInteger range("range", 5, 2, 9), any("any", 5);
  ConfigurableString text("text", "x");
  ConfigurableMultipleChoice fruit("fruit", kFruits, 1);
  ConfigurableFloat free("float", 1), clamped("clamped float", 9, -5.5, 5.5, false);
  ConfigurableDouble real("double", 1), strict("strict double", 9, -5.5, 5.5, true);
  ConfigurableTimestamp moment("moment", 5);
  ConfigurableTime time("time", 3661.5);
  ConfigurableTime_HourMinutes minutes("minutes", 3660);
  ConfigurableDate date("date", 86400);
  ConfigurableDate_YearMonth month("month", 86400);
  ConfigIPAddress address("address", "10.0.0.1");
  using namespace std::placeholders;
  const auto unbounded = std::numeric_limits<double>::infinity();
  Pair pairs[] = {{&flag, Bool, "true"},
                  {&range, std::bind(Integer, _1, 2, 9), "5"},
                  {&any, std::bind(Integer, _1, kLeast, kMost), "5"},
                  {&text, Text, "x"},
                  {&fruit, Choice, "banana"},
                  {&free, std::bind(Real<float>, _1, unbounded, false), "1|1"},
                  {&clamped, std::bind(Real<float>, _1, 5.5, false), "5.5|5.5"},
                  {&real, std::bind(Real<double>, _1, unbounded, false), "1|1"},
                  {&strict, std::bind(Real<double>, _1, 5.5, true), "5.5|5.5"},
                  {&moment, Moment, Value(moment)},
                  {&time, std::bind(Time, _1, 3), Value(time)},
                  {&minutes, std::bind(Time, _1, 2), Value(minutes)},
                  {&date, std::bind(Date, _1, 3), Value(date)},
                  {&month, std::bind(Date, _1, 2), Value(month)},
                  {&address, Address, "10.0.0.1"}};
  std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
  for (std::string line, previous; std::getline(lines, line); previous = line) {
    for (Pair& pair : pairs) Check(pair, line);
    CheckClock(previous, line);
  }
  return 0;
}
