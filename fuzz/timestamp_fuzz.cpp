// Timestamps from any text in any form: reading from a whole text, through the facets of a locale, from a buffer that
// is filled bit by bit, and by the rules one after the other must agree in value, state and what stays unread. The
// fields make the moment that the library's calendar makes of them, and it is broken down as there. It is written, by
// both ways of writing, as its fields say, and reads back.
//
// Input: a byte of choices, a byte for precision and chunk, three separators, and the text.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <iterator>
#include <locale>
#include <sstream>
#include <streambuf>
#include <string>

#include "runtime/timestamp.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

const Timestamp kBefore = -7;          // the value before it is read
constexpr int64_t kEpoch = 599616000;  // in Unix time

struct Form {
  bool separators, quoted, hexadecimal, throws;
  char date, datetime, time;
  void Set(std::ios_base& stream) const {
    if (separators) {
      Timestamp::set_quoted(stream);  // the separators take it back
      Timestamp::set_separators(stream, date, datetime, time);
    }
    if (quoted) Timestamp::set_quoted(stream);
    if (hexadecimal) stream.setf(std::ios_base::hex, std::ios_base::basefield);
  }
};

// Shows its text in pieces; what was read may be put back.
class Pieces : public std::streambuf {
 public:
  Pieces(std::string text, size_t size) : _text(std::move(text)), _size(size) {
    setg(_text.data(), _text.data(), _text.data());
  }

 protected:
  int_type underflow() override {
    char* const end = _text.data() + _text.size();
    if (gptr() == end) return traits_type::eof();
    setg(eback(), gptr(), gptr() + std::min<size_t>(_size, static_cast<size_t>(end - gptr())));
    return traits_type::to_int_type(*gptr());
  }

 private:
  std::string _text;
  const size_t _size;
};

// --- the second forms ---

Timestamp Moment(int year, int month, int day, int hour, int min, double sec) {
  if (year < 100) year += year < 89 ? 2000 : 1900;
  const int64_t months = (int64_t{year} - 1989) * 12 + month - 1;
  if (months < 0 || months >= 111 * 12) return 0;
  using std::chrono::sys_days, std::chrono::year_month_day;
  const year_month_day first(std::chrono::year(static_cast<int>(1989 + months / 12)),
                             std::chrono::month(static_cast<unsigned>(months % 12 + 1)), std::chrono::day(1));
  const int64_t days = sys_days(first).time_since_epoch().count() - kEpoch / 86400 + day - 1;
  return static_cast<double>(days) * 86400 + (min * 60.0 + sec) + hour * 3600.0;
}

// As it is told, without a way out but failure.
std::istream& ReadByTheRules(std::istream& in, const Form& form, Timestamp& value) {
  const char date = form.separators ? form.date : '-', datetime = form.separators ? form.datetime : ' ';
  int year = 0, month = 0, day = 0, hour = 0, min = 0;
  double sec = 0;
  char c = 0;
  const auto refuse = [&in, &c](bool fail) {
    in.putback(c);
    if (fail) in.setstate(std::ios_base::failbit);
  };
  if (form.quoted && in >> c && c != '"') refuse(false);
  if (date != 0) {
    in >> year;
    for (int* field : {&month, &day}) {
      if (in >> c && c != date) refuse(true);
      in >> *field;
    }
  } else {
    in >> day;
    year = day / 10000;
    month = day / 100 % 100;
    day %= 100;
  }
  if (!in) return in;
  if (datetime != 0 && in.get(c) && c != datetime) refuse(true);
  if (!form.separators || form.time != 0) {
    in >> hour >> c >> min >> c >> sec;
  } else if (double packed; in >> packed) {
    const double whole = std::trunc(std::min(std::max(packed, -2147483648.0), 2147483647.0));
    hour = static_cast<int>(whole) / 10000;
    min = static_cast<int>(whole) / 100 % 100;
    sec = packed - static_cast<int>(whole) / 100 * 100.0;
  }
  if (form.quoted && in >> c && c != '"') refuse(false);
  in.clear();
  value = Timestamp(year, month, day, hour, min, sec);
  REQUIRE(value == Moment(year, month, day, hour, min, sec));
  return in;
}

void CheckFields(double value) {
  const bool countable = value > -9223372036854775808.0 && value < 9223372036854775808.0;
  const uint32_t seconds = countable ? static_cast<uint32_t>(static_cast<int64_t>(value)) : 0;
  const Timestamp t(value);
  REQUIRE(t.hour() == static_cast<int>(seconds / 3600 % 24) && t.min() == static_cast<int>(seconds / 60 % 60));
  REQUIRE(t.sec() == value - seconds / 60 * 60 || std::isnan(value));
  if (seconds >= 3502828800) return;  // 2100, the first year that the library's calendar has otherwise
  const std::chrono::sys_days day(std::chrono::days((kEpoch + seconds) / 86400));
  const std::chrono::year_month_day date(day);
  REQUIRE(t.year() == int{date.year()} && t.month() == static_cast<int>(unsigned{date.month()}) &&
          t.day() == static_cast<int>(unsigned{date.day()}));
  REQUIRE(t.yearDay() == (day - std::chrono::sys_days(date.year() / 1 / 1)).count() + 1);
  REQUIRE(t.weekDay() == static_cast<int>(std::chrono::weekday(day).c_encoding()) + 1);
  REQUIRE(t.isLeap() == (t.year() % 4 == 0));
}

// Each day of the calendar, once.
bool CheckDays() {
  for (double day = 0; day < 40542; ++day) {
    const Timestamp t(day * 86400 + 45296.5);
    CheckFields(t.get());
    REQUIRE(t == Timestamp(t.year(), t.month(), t.day(), 12, 34, 56.5));
  }
  return true;
}

std::string Written(const Timestamp& t, const Form& form, int precision) {
  const auto separator = [&form](char own, const char* usual) {
    return !form.separators ? std::string(usual) : std::string(own != 0 ? 1 : 0, own);
  };
  const std::string date = separator(form.date, "-"), datetime = separator(form.datetime, " "),
                    time = separator(form.time, ":"), quote = form.quoted ? "\"" : "";
  std::ostringstream out;
  out << std::setprecision(precision) << std::setfill('0') << quote << std::setw(4) << t.year() << date << std::setw(2)
      << t.month() << date << std::setw(2) << t.day() << datetime << std::setw(2) << t.hour() << time << std::setw(2)
      << t.min() << time << (t.sec() < 10 ? "0" : "") << t.sec() << quote;
  return out.str();
}

// --- ---

struct Result {
  Timestamp value = kBefore;
  bool good = false, threw = false;
  std::string rest;
  bool operator==(const Result&) const = default;
};

template <class Reader>
Result Read(std::istream& in, const Form& form, Reader read) {
  form.Set(in);
  if (form.throws) in.exceptions(std::ios_base::failbit);
  Result result;
  try {
    read(in, form, result.value);
  } catch (const std::ios_base::failure&) {
    result.threw = true;
  }
  in.exceptions(std::ios_base::goodbit);
  result.good = in.good();
  REQUIRE(result.good == !in.fail() && (result.good || result.value == kBefore));
  in.clear();
  result.rest.assign(std::istreambuf_iterator<char>(in), {});
  return result;
}

std::istream& Extract(std::istream& in, const Form&, Timestamp& value) {
  return in >> value;
}

// Nothing differs from the classic locale but its name, so numbers go through the locale's facets.
const std::locale& ThroughFacets() {
  static const std::locale locale(std::locale::classic(), new std::numpunct<char>);
  return locale;
}

std::string Write(double value, const Form& form, int precision, int width) {
  std::ostringstream plain, facets;
  facets.imbue(ThroughFacets());
  for (auto* out : {&plain, &facets}) {
    form.Set(*out);
    *out << std::setprecision(precision) << std::setfill('*') << std::setw(width) << Timestamp(value);
    REQUIRE(out->good() && out->fill() == ' ' && out->width() == 0);
  }
  REQUIRE(plain.str() == facets.str());
  REQUIRE(form.hexadecimal || (form.quoted && width > 1) || plain.str() == Written(value, form, precision));
  return plain.str();
}

void CheckRoundTrip(const Timestamp& value, bool compact, bool quoted) {
  if (value < Timestamp(0) || value >= Timestamp(2100, 1, 1, 0, 0, 0) - 1) return;
  if (compact && value.sec() < 0.0001) return;  // an exponent would take all the time's digits with it
  if (value.sec() < 0) return;
  const Form form{compact, quoted, false, false, 0, 'T', 0};
  std::istringstream in(Write(value.get(), form, 6, 0));
  const Result result = Read(in, form, Extract);
  REQUIRE(result.good && result.rest.empty());
  REQUIRE(std::abs((result.value - value).get()) < 0.0001);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  [[maybe_unused]] static const bool days_are_good = CheckDays();
  if (size < 5) return 0;
  const auto choice = [data](int bit) { return (data[0] >> bit & 1) != 0; };
  const Form form{choice(0),
                  choice(1),
                  choice(2) && choice(3),
                  choice(4) && choice(5),
                  static_cast<char>(data[2]),
                  static_cast<char>(data[3]),
                  static_cast<char>(data[4])};
  const std::string text(reinterpret_cast<const char*>(data) + 5, size - 5);

  std::istringstream whole(text), through_facets(text), by_the_rules(text);
  through_facets.imbue(ThroughFacets());
  Pieces pieces(text, 1 + data[1] / 16);
  std::istream in_pieces(&pieces);
  const Result result = Read(whole, form, Extract);
  REQUIRE(result == Read(through_facets, form, Extract));
  REQUIRE(result == Read(in_pieces, form, Extract));
  REQUIRE(result == Read(by_the_rules, form, ReadByTheRules));

  const int precision = data[1] % 24;
  if (result.good) {
    CheckFields(result.value.get());
    Write(result.value.get(), form, precision, data[2]);
    for (const bool compact : {false, true})
      for (const bool quoted : {false, true}) CheckRoundTrip(result.value, compact, quoted);
  }
  double any = 0;
  if (text.size() >= sizeof any) std::memcpy(&any, text.data(), sizeof any);
  for (const double value : {any, std::fmod(std::abs(any), 100), std::fmod(any, 1e10)}) {
    CheckFields(value);
    Write(value, form, precision, 0);
  }
  return 0;
}
