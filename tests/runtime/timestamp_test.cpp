#include "runtime/timestamp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <locale>
#include <sstream>
#include <utility>

#include "tests/support/child_process.h"
#include "tests/support/virtual_time.h"

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kFailed = -7;  // the value before the read

using Form = void (*)(std::ios_base&);
constexpr Form kQuoted = Timestamp::set_quoted;
constexpr Form kCompact = [](std::ios_base& s) { Timestamp::set_quoted(s), Timestamp::set_separators(s, 0, 'T', 0); };
constexpr Form kCompactQuoted = [](std::ios_base& s) { kCompact(s), kQuoted(s); };
constexpr Form kSlashes = [](std::ios_base& s) { Timestamp::set_separators(s, '/', '_', '.'); };

// The second differs from the classic locale in nothing but its name, so numbers go through its facets.
const std::locale kLocales[] = {std::locale::classic(), {std::locale::classic(), new std::numpunct<char>}};

std::string Written(const std::locale& locale, double seconds, Form form = nullptr) {
  std::ostringstream out;
  out.imbue(locale);
  if (form != nullptr) form(out);
  out << Timestamp(seconds);
  EXPECT_TRUE(out.fill() == ' ' && out.width() == 0);
  return out.str();
}

double Read(const std::locale& locale, const std::string& text, Form form = nullptr, const char* rest = "") {
  std::istringstream in(text);
  in.imbue(locale);
  if (form != nullptr) form(in);
  Timestamp value = kFailed;
  in >> value;
  EXPECT_EQ(value != Timestamp(kFailed), in.good()) << text;
  in.clear();
  EXPECT_EQ(rest, text.substr(static_cast<size_t>(in.tellg()))) << text;
  return value.get();
}

TEST(Timestamp, TextAndSecondsBothWays) {
  const std::pair<const char*, double> rows[] = {{"1989-01-01 00:00:00", 0},
                                                 {"1989-01-01 00:00:00.001", 0.001},
                                                 {"1989-01-01 00:00:09.999", 9.999},
                                                 {"1989-01-01 00:59:59.999", 3599.999},
                                                 {"1989-01-01 23:59:59.999", 86399.999},
                                                 {"1992-02-29 00:00:00", 99705600},
                                                 {"2099-12-31 23:59:59.999", 3502828799.999}};
  for (const auto& [text, seconds] : rows)
    for (const auto& locale : kLocales) {
      EXPECT_EQ(text, Written(locale, seconds));
      EXPECT_EQ(seconds, Read(locale, text));
      EXPECT_EQ('"' + std::string(text) + '"', Written(locale, seconds, kQuoted));
      for (const auto form : {kQuoted, kCompact, kCompactQuoted, kSlashes})
        EXPECT_NEAR(seconds, Read(locale, Written(locale, seconds, form), form), 0.0001) << text;
    }
}

TEST(Timestamp, WritesByTheFormattingOfTheStream) {
  const struct {
    double seconds;
    const char* end;  // of the text
    Form format = nullptr;
  } rows[] = {{9.9999999, ":010"},
              {0.00001, ":01e-05"},
              {59.99995, ":59.9999"},
              {-0.0, ":0-0"},
              {kNaN, ":nan"},
              {12.3456789, ":12.346", [](std::ios_base& s) { s.precision(5); }},
              {12, ":1e+01", [](std::ios_base& s) { s.precision(1); }},
              {12.5, ":12.500", [](std::ios_base& s) { s.setf(s.fixed, s.floatfield), s.precision(3); }},
              {3, "1989-01-01 00:00:03", [](std::ios_base& s) { s.width(40); }},
              {1, "1989-10-10 00:00:01", [](std::ios_base& s) { s.setf(s.left, s.adjustfield); }},
              {20, "07c5-01-01 00:00:20", [](std::ios_base& s) { s.setf(s.hex, s.basefield); }},
              {9.999, "19890101T000009.999", kCompact},
              {9.999, "\"19890101T000009.999\"", kCompactQuoted}};
  for (const auto& [seconds, end, format] : rows)
    for (const auto& locale : kLocales) EXPECT_THAT(Written(locale, seconds, format), testing::EndsWith(end));
}

TEST(Timestamp, ReadsWhatIsThereAndLeavesTheRest) {
  const struct {
    const char* text;
    double seconds;
    const char* rest = "";
    Form form = nullptr;
  } rows[] = {{"1989-12-31 23:59:59", 31535999},
              {"1989-12-31 23:59:", 31535940},
              {"1989-12-31 23", 31532400},
              {" 89 -\t1 - 2", 86400},
              {"1989-12-31 23 x59\n.59;rest", 31535999, ";rest"},
              {"1989-12-31T23:59:59", 31449600, "T23:59:59"},
              {"1989-01-01 00:00:1e1 ", 10, " "},
              {"1989-01-01 00:00:+7.5.5", 7.5, ".5"},
              {"1989-01-01 00:00:7.5.5", 7.5, ".5"},
              {"1989-01-01 00:00:123456789.123456789e-3-", 123456.789123456789, "-"},
              {"1989-01-01 00:00:1e999", std::numeric_limits<double>::max()},
              {"1989-01-01 9999999999:1:1", 2147483647 * 3600.0, ":1:1"},
              {"1989-01-01 2147483647:-2147483648:0", 2147483647 * 3600.0 - 2147483648 * 60.0},
              {"-2147483648--2147483648--2147483648", 0},
              {"1989-2147483648-1", kFailed, "-1"},
              {"1989-12", kFailed},
              {"1989/12/31", kFailed, "/12/31"},
              {"\"1989-01-02", kFailed, "\"1989-01-02"},
              {" \"1989-01-02\" 1", 86400, "\" 1", kQuoted},
              {"\"1989-01-02 00:00:01,", 86401, ",", kQuoted},
              {"19890102 010000", 86400, " 010000", kCompact},
              {"19890102T-10000", 82800, "", kCompact},
              {"19890102T1e300", 1e300, "", kCompact},
              {"99999999999", kFailed, "", kCompact}};
  for (const auto& row : rows)
    for (const auto& locale : kLocales) EXPECT_EQ(row.seconds, Read(locale, row.text, row.form, row.rest)) << row.text;
}

TEST(Timestamp, MakesAMomentOfFields) {
  const std::pair<Timestamp, double> rows[] = {
      {{89, 1, 1, 0, 0, 0}, 0},          {{88, 1, 1, 0, 0, 0}, 3124137600},     {{1988, 12, 31, 0, 0, 0}, 0},
      {{2100, 1, 1, 0, 0, 0}, 0},        {{1989, 13, 1, 0, 0, 0}, 31536000},    {{2099, 13, 1, 0, 0, 0}, 0},
      {{1990, 0, 1, 0, 0, 0}, 28857600}, {{1990, -11, 1, 0, 0, 0}, 0},          {{1991, -12, 1, 0, 0, 0}, 28857600},
      {{1989, 0, 1, 0, 0, 0}, 0},        {{1990, 27, 1, 0, 0, 0}, 99792000},    {{1989, 1, 32, 0, 0, 0}, 2678400},
      {{1989, 2, 0, 0, 0, 0}, 2592000},  {{1989, 1, 1, 25, -1, 0.25}, 89940.25}};
  for (const auto& [value, seconds] : rows) EXPECT_EQ(seconds, value.get());
}

// Every day of the range against a calendar that counts days one by one.
TEST(Timestamp, BreaksEveryDayDown) {
  double days = 0;
  for (int year = 1989; year < 2100; ++year) {
    const int lengths[] = {31, year % 4 == 0 ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (int month = 1, of_year = 1; month <= 12; ++month)
      for (int day = 1; day <= lengths[month - 1]; ++day, ++days, ++of_year) {
        const Timestamp t = days * 86400 + 12 * 3600 + 34 * 60 + 56.5;
        ASSERT_EQ(Timestamp(year, month, day, 12, 34, 56.5), t);
        ASSERT_TRUE(t.year() == year && t.month() == month && t.day() == day && t.yearDay() == of_year &&
                    t.weekDay() == std::fmod(days, 7) + 1 && t.isLeap() == (lengths[1] == 29) && t.hour() == 12 &&
                    t.min() == 34 && t.sec() == 56.5)
            << t;
      }
  }
}

TEST(Timestamp, WrapsWholeSecondsThatDoNotFit) {
  EXPECT_EQ(2125, Timestamp(-1).year());
  for (const double seconds : {4294967296.0, kNaN, kInf, -kInf, 1e300, -9223372036854775808.0})
    EXPECT_TRUE(Timestamp(seconds).year() == 1989 && Timestamp(seconds).hour() == 0) << seconds;
}

// Each zone in a process of its own, since the zone is found only once.
TEST(Timestamp, KeepsTheZoneOfItsFirstUse) {
  for (const auto& [zone, offset] : {std::pair{"ABC-3:30", 12600}, std::pair{"XYZ5", -18000}}) {
    const auto body = [zone = zone, offset = offset] {
      setenv("TZ", zone, 1);
      Timestamp t(1000000);
      t.convert_utc_to_local();
      setenv("TZ", "LATE7", 1);
      EXPECT_EQ(1000000 + offset, t.get());
      EXPECT_EQ(std::string(zone, 3), Timestamp::local_timezone_name());
      t.convert_local_to_utc();
      EXPECT_EQ(1000000, t.get());

      // The present local time follows the zone now in force.
      VirtualTime time;  // 2024-03-01 00:00:00 UTC
      time.AdvanceNanoseconds(250'000'000);
      t.assign_local_time();
      EXPECT_EQ(Timestamp(2024, 2, 29, 17, 0, 0.25), t);
    };
    const auto result = RunInChild(body);
    EXPECT_EQ(0, result.exit_status) << zone << result.output;
  }
}

}  // namespace
