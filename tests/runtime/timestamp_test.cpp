#include "runtime/timestamp.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <locale>
#include <sstream>

#include "tests/support/child_process.h"
#include "tests/support/virtual_time.h"

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Nothing differs from the classic locale but its name, so numbers go through the locale's facets.
std::locale ThroughFacets() {
  return {std::locale::classic(), new std::numpunct<char>};
}

std::string Written(double seconds, void (*form)(std::ios_base&) = nullptr) {
  std::string texts[2];
  for (const bool facets : {false, true}) {
    std::ostringstream out;
    if (facets) out.imbue(ThroughFacets());
    if (form != nullptr) form(out);
    out << Timestamp(seconds);
    EXPECT_EQ(' ', out.fill());
    EXPECT_EQ(0, out.width());
    texts[facets ? 1 : 0] = out.str();
  }
  EXPECT_EQ(texts[0], texts[1]);
  return texts[0];
}

struct ReadResult {
  double seconds;
  bool good;
  std::string rest;
};

ReadResult ReadFrom(const std::string& text, void (*form)(std::ios_base&) = nullptr) {
  ReadResult results[2];
  for (const bool facets : {false, true}) {
    std::istringstream in(text);
    if (facets) in.imbue(ThroughFacets());
    if (form != nullptr) form(in);
    Timestamp value(-7);
    in >> value;
    ReadResult& result = results[facets ? 1 : 0];
    result.seconds = value.get();
    result.good = in.good();
    EXPECT_TRUE(result.good || in.fail());
    in.clear();
    getline(in, result.rest, '\0');
  }
  EXPECT_EQ(results[0].seconds, results[1].seconds) << text;
  EXPECT_EQ(results[0].good, results[1].good) << text;
  EXPECT_EQ(results[0].rest, results[1].rest) << text;
  return results[0];
}

void Compact(std::ios_base& stream) {
  Timestamp::set_separators(stream, 0, 'T', 0);
}
void Slashes(std::ios_base& stream) {
  Timestamp::set_separators(stream, '/', '_', '.');
}
void Quoted(std::ios_base& stream) {
  Timestamp::set_quoted(stream);
}
void CompactQuoted(std::ios_base& stream) {
  Compact(stream);
  Quoted(stream);
}
void QuoteTakenBack(std::ios_base& stream) {
  CompactQuoted(stream);
  Compact(stream);
}

struct Pair {
  const char* text;
  double seconds;
};

const Pair kBothWays[] = {
    {"1989-01-01 00:00:00", 0},
    {"1989-01-01 00:00:00.001", 0.001},
    {"1989-01-01 00:00:00.1", 0.1},
    {"1989-01-01 00:00:01.001", 1.001},
    {"1989-01-01 00:00:09.999", 9.999},
    {"1989-01-01 00:00:10", 10},
    {"1989-01-01 00:00:59", 59},
    {"1989-01-01 00:01:00", 60},
    {"1989-01-01 00:59:59.999", 3599.999},
    {"1989-01-01 01:00:00", 3600},
    {"1989-01-01 23:59:59.999", 86399.999},
    {"1989-01-02 00:00:00", 86400},
    {"1989-01-31 23:59:59.999", 2678399.999},
    {"1989-02-01 00:00:00", 2678400},
    {"1989-03-01 00:00:00", 5097600},
    {"1989-12-01 00:00:00", 28857600},
    {"1989-12-31 23:59:59.999", 31535999.999},
    {"1990-01-01 00:00:00", 31536000},
    {"1992-01-01 00:00:00", 94608000},
    {"1992-02-28 00:00:00", 99619200},
    {"1992-02-29 00:00:00", 99705600},
    {"1992-03-01 00:00:00", 99792000},
    {"1999-12-31 23:59:59.999", 347068799.999},
    {"2000-01-01 00:00:00", 347068800},
    {"2001-01-01 00:00:00", 378691200},
    {"2001-02-28 00:00:00", 383702400},
    {"2001-03-01 00:00:00", 383788800},
    {"2099-12-31 23:59:59.999", 3502828799.999},
};

TEST(Timestamp, TextAndSecondsBothWays) {
  for (const auto& [text, seconds] : kBothWays) {
    EXPECT_EQ(text, Written(seconds));
    const auto result = ReadFrom(text);
    EXPECT_EQ(seconds, result.seconds) << text;
    EXPECT_TRUE(result.good);

    const std::string quoted = '"' + std::string(text) + '"';
    EXPECT_EQ(quoted, Written(seconds, Quoted));
    EXPECT_NEAR(seconds, ReadFrom(quoted, Quoted).seconds, 0.0001);
    for (const auto form : {Compact, Slashes, CompactQuoted, QuoteTakenBack})
      EXPECT_NEAR(seconds, ReadFrom(Written(seconds, form), form).seconds, 0.0001) << text;
  }
  EXPECT_EQ("19890101T000009.999", Written(9.999, QuoteTakenBack));
  EXPECT_EQ("\"19890101T000009.999\"", Written(9.999, CompactQuoted));
  EXPECT_EQ("1989/01/01_00.00.09.999", Written(9.999, Slashes));
}

TEST(Timestamp, WritesByTheFormattingOfTheStream) {
  const struct {
    double seconds;
    const char* text;
    void (*format)(std::ios_base&);
  } rows[] = {
      {59.9999999, "1989-01-01 00:00:60", [](std::ios_base&) {}},
      {9.9999999, "1989-01-01 00:00:010", [](std::ios_base&) {}},
      {0.00001, "1989-01-01 00:00:01e-05", [](std::ios_base&) {}},
      {1.0000005, "1989-01-01 00:00:01", [](std::ios_base&) {}},
      {59.99995, "1989-01-01 00:00:59.9999", [](std::ios_base&) {}},
      {59.99994, "1989-01-01 00:00:59.9999", [](std::ios_base&) {}},
      {12.3456789, "1989-01-01 00:00:12.346", [](std::ios_base& s) { s.precision(5); }},
      {12.0, "1989-01-01 00:00:1e+01", [](std::ios_base& s) { s.precision(1); }},
      {12.5, "1989-01-01 00:00:12.500", [](std::ios_base& s) { s.setf(s.fixed, s.floatfield), s.precision(3); }},
      {-0.0, "1989-01-01 00:00:0-0", [](std::ios_base&) {}},
      {0.1, "1989-01-01 00:00:00.10000000000000001", [](std::ios_base& s) { s.precision(17); }},
      {1, "1989-10-10 00:00:01", [](std::ios_base& s) { s.setf(s.left, s.adjustfield); }},
      {20, "07c5-01-01 00:00:20", [](std::ios_base& s) { s.setf(s.hex, s.basefield); }},
      {3, "1989-01-01 00:00:03", [](std::ios_base& s) { s.width(40); }},
      {kNaN, "1989-01-01 00:00:nan", [](std::ios_base&) {}},
      {kInf, "1989-01-01 00:00:inf", [](std::ios_base&) {}},
  };
  for (const auto& row : rows) EXPECT_EQ(row.text, Written(row.seconds, row.format));
}

TEST(Timestamp, ReadsWhatIsThereAndLeavesTheRest) {
  const struct {
    const char* text;
    void (*form)(std::ios_base&);
    double seconds;  // -7: the old value, and the stream has failed
    const char* rest;
  } rows[] = {
      {"1989-12-31 23:59:59.999", nullptr, 31535999.999, ""},
      {"1989-12-31 23:59:59", nullptr, 31535999, ""},
      {"1989-12-31 23:59", nullptr, 31535940, ""},
      {"1989-12-31 23:59:", nullptr, 31535940, ""},
      {"1989-12-31 23", nullptr, 31532400, ""},
      {"1989-12-31", nullptr, 31449600, ""},
      {"1989-12-01", nullptr, 28857600, ""},
      {"1989-01-01", nullptr, 0, ""},
      {" 89 -\t1 - 2", nullptr, 86400, ""},
      {"1989-12-31 23.59.59", nullptr, 31535999, ""},
      {"1989-12-31 23 x59\n:59;rest", nullptr, 31535999, ";rest"},
      {"1989-12-31T23:59:59", nullptr, 31449600, "T23:59:59"},
      {"1989-12-31 noon", nullptr, 31449600, "noon"},
      {"1989-01-01 00:00:1e1 ", nullptr, 10, " "},
      {"1989-01-01 00:00:+7.5.5", nullptr, 7.5, ".5"},
      {"1989-01-01 00:00:1e", nullptr, 0, ""},
      {"1989-01-01 00:00:.", nullptr, 0, ""},
      {"1989-01-01 00:00:7.5.5", nullptr, 7.5, ".5"},
      {"1989-01-01 00:00:123456789.123456789e-3-", nullptr, 123456.789123456789, "-"},
      {"1989-01-01 00:00:000000000000000000005.5", nullptr, 5.5, ""},
      {"1989-01-01 -1:60:5", nullptr, 5, ""},
      {"1989-01-01 00:00:1e999", nullptr, std::numeric_limits<double>::max(), ""},
      {"1989-01-01 00:00:1e-999", nullptr, 0, ""},
      {"1989-01-01 9999999999:1:1", nullptr, 2147483647 * 3600.0, ":1:1"},
      {"1989-01-01 2147483647:-2147483648:0", nullptr, 2147483647 * 3600.0 - 2147483648 * 60.0, ""},
      {"1989-01-2147483647", nullptr, 2147483646 * 86400.0, ""},
      {"1989--2147483648-1", nullptr, 0, ""},
      {"-2147483648--2147483648--2147483648", nullptr, 0, ""},
      {"2147483647-2147483647-1", nullptr, 0, ""},
      {"1989-2147483648-1", nullptr, -7, "-1"},
      {"99999999999999999999-1-1", nullptr, -7, "-1-1"},
      {"1989-12", nullptr, -7, ""},
      {"1989-12-", nullptr, -7, ""},
      {"1989-12-x", nullptr, -7, "x"},
      {"1989/12/31", nullptr, -7, "/12/31"},
      {"1989-12.31", nullptr, -7, ".31"},
      {"", nullptr, -7, ""},
      {"\"1989-01-02", nullptr, -7, "\"1989-01-02"},
      {"1989-01-02 01:00:00\"", Quoted, 90000, ""},
      {" \"1989-01-02\" 1", Quoted, 86400, "\" 1"},
      {"\"1989-01-02 0\" 1", Quoted, 86460, ""},  // the quote separates hour and minute
      {" \"1989-01-02 0:0:0 \" 1", Quoted, 86400, " 1"},
      {"\"1989-01-02 00:00:01", Quoted, 86401, ""},
      {"\"1989-01-02 00:00:01,", Quoted, 86401, ","},
      {"", Quoted, -7, ""},
      {"19890102T010000.5", Compact, 90000.5, ""},
      {"19890102T", Compact, 86400, ""},
      {"19890102 010000", Compact, 86400, " 010000"},
      {"19890102T-10000", Compact, 82800, ""},
      {"19890102T1e300", Compact, 1e300, ""},
      {"-890102", Compact, 0, ""},
      {"99999999999", Compact, -7, ""},
      {"T", Compact, -7, "T"},
      {"1989/1/2_1.2.3", Slashes, 90123, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const auto result = ReadFrom(row.text, row.form);
    EXPECT_EQ(row.seconds != -7, result.good);
    EXPECT_EQ(row.seconds, result.seconds);
    EXPECT_EQ(row.rest, result.rest);
  }
}

TEST(Timestamp, MakesAMomentOfFields) {
  const struct {
    const char* name;
    Timestamp value;
    double seconds;
  } rows[] = {
      {"year 89", {89, 1, 1, 0, 0, 0}, 0},
      {"year 88", {88, 1, 1, 0, 0, 0}, Timestamp(2088, 1, 1, 0, 0, 0).get()},
      {"year 2088", {2088, 1, 1, 0, 0, 0}, 3124137600},
      {"before the range", {1988, 12, 31, 0, 0, 0}, 0},
      {"behind the range", {2100, 1, 1, 0, 0, 0}, 0},
      {"month 13", {1989, 13, 1, 0, 0, 0}, 31536000},
      {"month 13 of the last year", {2099, 13, 1, 0, 0, 0}, 0},
      {"month 0", {1990, 0, 1, 0, 0, 0}, 28857600},
      {"month -11", {1990, -11, 1, 0, 0, 0}, 0},
      {"month -12", {1991, -12, 1, 0, 0, 0}, 28857600},
      {"month 0 of the first year", {1989, 0, 1, 0, 0, 0}, 0},
      {"month 25 of a leap year", {1990, 27, 1, 0, 0, 0}, 99792000},
      {"day 32", {1989, 1, 32, 0, 0, 0}, 2678400},
      {"day 0", {1989, 2, 0, 0, 0, 0}, 2678400 - 86400},
      {"hour 25, minute -1", {1989, 1, 1, 25, -1, 0.25}, 89940.25},
  };
  for (const auto& row : rows) EXPECT_EQ(row.seconds, row.value.get()) << row.name;
}

// Every day of the range against a calendar that counts days one by one.
TEST(Timestamp, BreaksEveryDayDown) {
  const int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  double days = 0;
  for (int year = 1989; year < 2100; ++year) {
    const bool leap = year % 4 == 0;
    for (int month = 1, of_year = 1; month <= 12; ++month)
      for (int day = 1; day <= lengths[month - 1] + (leap && month == 2 ? 1 : 0); ++day, ++days, ++of_year) {
        const Timestamp t = days * 86400 + 12 * 3600 + 34 * 60 + 56.5;
        ASSERT_TRUE(t.year() == year && t.month() == month && t.day() == day && t.yearDay() == of_year &&
                    t.weekDay() == std::fmod(days, 7) + 1 && t.isLeap() == leap && t.hour() == 12 && t.min() == 34 &&
                    t.sec() == 56.5 && t == Timestamp(year, month, day, 12, 34, 56.5))
            << year << '-' << month << '-' << day;
      }
  }
}

TEST(Timestamp, WrapsWholeSecondsThatDoNotFit) {
  const struct {
    double seconds;
    int year, hour;
  } rows[] = {{-1, 2125, 6},    {4294967296.0, 1989, 0},          {kNaN, 1989, 0}, {kInf, 1989, 0}, {-kInf, 1989, 0},
              {1e300, 1989, 0}, {-9223372036854775808.0, 1989, 0}};
  for (const auto& row : rows) {
    EXPECT_EQ(row.year, Timestamp(row.seconds).year()) << row.seconds;
    EXPECT_EQ(row.hour, Timestamp(row.seconds).hour()) << row.seconds;
  }
  EXPECT_EQ(Timestamp(5.5), Timestamp(3) + Timestamp(2.5));
  EXPECT_LT(Timestamp(3) - Timestamp(3.5), Timestamp());
}

// Each zone in a process of its own, since the zone is found only once.
TEST(Timestamp, KeepsTheZoneOfItsFirstUse) {
  const struct {
    const char* zone;
    int offset;
  } rows[] = {{"ABC-3:30", 12600}, {"XYZ5", -18000}, {"UTC0", 0}};
  for (const auto& row : rows) {
    const auto body = [&row] {
      setenv("TZ", row.zone, 1);
      Timestamp t(1000000);
      t.convert_utc_to_local();
      setenv("TZ", "LATE7", 1);
      EXPECT_EQ(1000000 + row.offset, t.get());
      EXPECT_EQ(std::string(row.zone, 3), Timestamp::local_timezone_name());
      t.convert_local_to_utc();
      EXPECT_EQ(1000000, t.get());

      // The present local time follows the zone now in force.
      VirtualTime time;  // 2024-03-01 00:00:00 UTC
      time.AdvanceNanoseconds(250'000'000);
      Timestamp local;
      local.assign_local_time();
      EXPECT_EQ(Timestamp(2024, 2, 29, 17, 0, 0.25), local);
    };
    const auto result = RunInChild(body);
    EXPECT_EQ(0, result.exit_status) << row.zone << result.output;
  }
}

}  // namespace
