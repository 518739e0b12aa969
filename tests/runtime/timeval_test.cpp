#include "runtime/timeval.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

constexpr int32_t kMax = INT32_MAX, kMin = INT32_MIN;

TEST(TimeVal, TakesOneStepTowardsTheNormalForm) {
  const std::pair<TimeVal, TimeVal> rows[] = {
      {{2, -1}, {1, 999999999}},   {{2, 1999999999}, {3, 999999999}},  {{-2, 1}, {-1, -999999999}},
      {{-1, 999999999}, {0, -1}},  {{-2, -1000000000}, {-3, 0}},       {{0, 1000000000}, {1, 0}},
      {{0, -1000000000}, {-1, 0}}, {{3, 2000000000}, {4, 1000000000}}, {{kMax, 1000000000}, {kMin, 0}}};
  for (const auto& [given, normal] : rows) {
    TimeVal value = given;
    value._normalize();
    EXPECT_EQ(normal, value) << given;
  }
}

TEST(TimeVal, AddsSubtractsComparesAndIsWritten) {
  EXPECT_EQ(TimeVal(3, 100000000), TimeVal(1, 600000000) + TimeVal(1, 500000000));
  EXPECT_EQ(TimeVal(-1, -100000000), TimeVal(0, -600000000) - TimeVal(0, 500000000));
  EXPECT_EQ(TimeVal(kMin), TimeVal(kMax) + TimeVal(1));
  EXPECT_EQ(TimeVal(kMax), TimeVal(kMin) - TimeVal(1));
  const std::pair<TimeVal, const char*> rising[] = {{{kMin, kMin}, "-2147483648.2147483648"},
                                                    {{-3, -250000000}, "-3.250000000"},
                                                    {{-3, -5}, "-3.000000005"},
                                                    {{0, -500000000}, "-0.500000000"},
                                                    {{0, 0}, "0.000000000"},
                                                    {{12, 34}, "12.000000034"}};
  for (const auto& row : rising) {
    std::ostringstream out;
    out.fill('*');
    out << row.first;
    EXPECT_EQ(row.second, out.str());
    EXPECT_EQ(' ', out.fill());
    for (const auto& other : rising) EXPECT_EQ(&row < &other, row.first < other.first) << row.second;
  }
}

}  // namespace
