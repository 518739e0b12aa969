#include "runtime/timeval.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>

namespace {

constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
constexpr int32_t kMin = std::numeric_limits<int32_t>::min();

TEST(TimeVal, TakesOneStepTowardsTheNormalForm) {
  const struct {
    TimeVal given, normal;
  } rows[] = {{{2, -1}, {1, 999999999}},      {{2, 1000000000}, {3, 0}},    {{2, 1999999999}, {3, 999999999}},
              {{-2, 1}, {-1, -999999999}},    {{-2, -1000000000}, {-3, 0}}, {{0, 1000000000}, {1, 0}},
              {{0, -1000000000}, {-1, 0}},    {{0, -5}, {0, -5}},           {{0, 5}, {0, 5}},
              {{1, -999999999}, {0, 1}},      {{-1, 999999999}, {0, -1}},   {{3, 2000000000}, {4, 1000000000}},
              {{kMax, 1000000000}, {kMin, 0}}};
  for (const auto& row : rows) {
    TimeVal value = row.given;
    value._normalize();
    EXPECT_EQ(row.normal, value) << row.given;
  }
}

TEST(TimeVal, AddsSubtractsAndCompares) {
  EXPECT_EQ(TimeVal(3, 100000000), TimeVal(1, 600000000) + TimeVal(1, 500000000));
  EXPECT_EQ(TimeVal(0, -900000000), TimeVal(1, 600000000) - TimeVal(2, 500000000));
  EXPECT_EQ(TimeVal(-1, -100000000), TimeVal(0, -600000000) - TimeVal(0, 500000000));
  EXPECT_EQ(TimeVal(kMin), TimeVal(kMax) + TimeVal(1));
  EXPECT_EQ(TimeVal(kMax), TimeVal(kMin) - TimeVal(1));
  const TimeVal rising[] = {{-1, -5}, {-1, -4}, {0, -999999999}, {0, 0}, {0, 5}, {1, 0}};
  for (size_t i = 1; i < std::size(rising); ++i) EXPECT_LT(rising[i - 1], rising[i]);
}

TEST(TimeVal, WritesNineDigitsAndItsSign) {
  const struct {
    TimeVal value;
    const char* text;
  } rows[] = {{{0, -500000000}, "-0.500000000"}, {{0, 5}, "0.000000005"}, {{-3, -250000000}, "-3.250000000"},
              {{12, 34}, "12.000000034"},        {{0, 0}, "0.000000000"}, {{kMin, kMin}, "-2147483648.2147483648"}};
  for (const auto& row : rows) {
    std::ostringstream out;
    out.fill('*');
    out << row.value;
    EXPECT_EQ(row.text, out.str());
    EXPECT_EQ(' ', out.fill());
  }
}

}  // namespace
