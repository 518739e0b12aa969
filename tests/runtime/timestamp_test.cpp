#include "runtime/timestamp.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "tests/support/child_process.h"
#include "tests/support/error_text.h"
#include "tests/support/virtual_time.h"

namespace {

constexpr double kFailed = -7;  // the value before the read

using Form = void (*)(std::ios_base&);
constexpr Form kPlain = [](std::ios_base&) {};
constexpr Form kQuoted = Timestamp::set_quoted;
constexpr Form kCompact = [](std::ios_base& s) { Timestamp::set_separators(s, 0, 'T', 0), kQuoted(s); };
constexpr Form kSlashes = [](std::ios_base& s) { Timestamp::set_separators(s, '/', '_', '.'); };

double Read(const std::string& text, Form form = kPlain, const char* rest = "") {
  std::istringstream in(text);
  form(in);
  Timestamp value = kFailed;
  in >> value;
  EXPECT_EQ(value != Timestamp(kFailed), in.good()) << text;
  in.clear();
  EXPECT_EQ(rest, text.substr(static_cast<size_t>(in.tellg()))) << text;
  return value.get();
}

TEST(Timestamp, IsWrittenByTheFormattingOfTheStream) {
  const struct {
    double seconds;
    const char* text;
    Form form = kPlain;
    bool again = true;  // it is read as the same
  } rows[] = {{0.001, "1989-01-01 00:00:00.001"},
              {3502828799.999, "2099-12-31 23:59:59.999"},
              {9.999, "\"1989-01-01 00:00:09.999\"", kQuoted},
              {9.999, "\"19890101T000009.999\"", kCompact},
              {3599.5, "1989/01/01_00.59.59.5", kSlashes},
              {9.9999999, "1989-01-01 00:00:010", kPlain, false},
              {0.00001, "1989-01-01 00:00:01e-05", kPlain, false},
              {12.3456789, "1989-01-01 00:00:12.346", [](std::ios_base& s) { s.precision(5); }, false},
              {3, "1989-01-01 00:00:03", [](std::ios_base& s) { s.width(40); }},
              {20, "07c5-01-01 00:00:20", [](std::ios_base& s) { s.setf(s.hex, s.basefield); }}};
  for (const auto& row : rows) {
    std::ostringstream out;
    row.form(out);
    out << Timestamp(row.seconds);
    EXPECT_TRUE(out.str() == row.text && out.fill() == ' ' && out.width() == 0) << out.str();
    EXPECT_TRUE(!row.again || std::abs(Read(row.text, row.form) - row.seconds) < 1e-6) << row.text;
  }
}

TEST(Timestamp, ReadsWhatIsThereAndLeavesTheRest) {
  const struct {
    const char* text;
    double seconds;
    const char* rest = "";
    Form form = kPlain;
  } rows[] = {{" 89 -\t1 - 2", 86400},
              {"1989-12-31 23 x59\n.59;rest", 31535999, ";rest"},
              {"1989-01-01 00:00:1e1 ", 10, " "},
              {"1989-01-01 9999999999:1:1", 2147483647 * 3600.0, ":1:1"},
              {"\"1989-01-02 00:00:01,", 86401, ",", kQuoted},
              {"19890102T-10000", 82800, "", kCompact},
              {"99999999999", kFailed, "", kCompact}};
  for (const auto& row : rows) EXPECT_EQ(row.seconds, Read(row.text, row.form, row.rest)) << row.text;
}

TEST(Timestamp, MakesAMomentOfFields) {
  const std::pair<Timestamp, double> rows[] = {
      {{89, 1, 1, 0, 0, 0}, 0},          {{88, 1, 1, 0, 0, 0}, 3124137600},  {{1988, 12, 31, 0, 0, 0}, 0},
      {{2100, 1, 1, 0, 0, 0}, 0},        {{1989, 13, 1, 0, 0, 0}, 31536000}, {{2099, 13, 1, 0, 0, 0}, 0},
      {{1990, 0, 1, 0, 0, 0}, 28857600}, {{1990, -11, 1, 0, 0, 0}, 0},       {{1989, 1, 1, 25, -1, 0.25}, 89940.25}};
  for (const auto& [value, seconds] : rows) EXPECT_EQ(seconds, value.get());
  EXPECT_EQ(2125, Timestamp(-1).year());
  for (const double seconds : {4294967296.0, double{NAN}, 1e300, -9223372036854775808.0})
    EXPECT_EQ(Timestamp(seconds).year(), 1989) << seconds;
}

TEST(Timestamp, BreaksEveryDayDown) {
  double days = 0;
  for (int year = 1989; year < 2100; ++year) {
    const int lengths[] = {31, year % 4 == 0 ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (int month = 1, of_year = 1; month <= 12; ++month)
      for (int day = 1; day <= lengths[month - 1]; ++day, ++days, ++of_year) {
        const Timestamp t(year, month, day, 12, 34, 56.5);
        ASSERT_EQ(days * 86400 + 12 * 3600 + 34 * 60 + 56.5, t.get());
        ASSERT_TRUE(t.year() == year && t.month() == month && t.day() == day && t.yearDay() == of_year) << t;
        ASSERT_TRUE(t.weekDay() == std::fmod(days, 7) + 1 && t.isLeap() == (lengths[1] == 29)) << t;
        ASSERT_TRUE(t.hour() == 12 && t.min() == 34 && t.sec() == 56.5) << t;
      }
  }
}

TEST(Timestamp, KeepsTheZoneOfItsFirstUse) {
  const auto result = RunInChild([] {
    VirtualTime time;  // 2024-03-01 00:00:00 UTC
    time.AdvanceNanoseconds(250'000'000);
    Timestamp t(1000000);
    setenv("TZ", "ABC-3:30", 1);
    t.convert_utc_to_local();
    setenv("TZ", "LATE7", 1);
    EXPECT_TRUE(t.get() == 1012600 && Timestamp::local_timezone_name() == "ABC");
    t.convert_local_to_utc();
    EXPECT_EQ(1000000, t.get());
    t.assign_local_time();
    EXPECT_EQ(Timestamp(2024, 2, 29, 17, 0, 0.25), t) << "by the zone now in force";
    time.SetFailing(true);
    EXPECT_EQ("Unable to get current time: Invalid argument", ErrorText([&] { t.assign_local_time(); }));
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
}

}  // namespace
