#include "runtime/timeval.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

constexpr int32_t kMax = INT32_MAX, kMin = INT32_MIN;

TEST(TimeVal, TakesOneStepTowardsTheNormalForm) {
  const std::pair<TimeVal, TimeVal> rows[] = {{{2, -1}, {1, 999999999}},       {{-2, 1}, {-1, -999999999}},
                                              {{-1, 999999999}, {0, -1}},      {{-2, -1000000000}, {-3, 0}},
                                              {{0, 1000000000}, {1, 0}},       {{3, 2000000000}, {4, 1000000000}},
                                              {{kMax, 1000000000}, {kMin, 0}}, {{0, -1100000000}, {-1, -100000000}}};
  for (const auto& [given, normal] : rows) {
    EXPECT_EQ(normal, given + TimeVal()) << given;
  }
}

TEST(TimeVal, AddsSubtractsIsOrderedAndWritten) {
  EXPECT_EQ(TimeVal(kMin), TimeVal(kMax) + TimeVal(1));
  EXPECT_EQ(TimeVal(-1, -100000000), TimeVal(0, -600000000) - TimeVal(0, 500000000));
  const std::pair<TimeVal, const char*> rising[] = {{{kMin, kMin}, "-2147483648.2147483648"},
                                                    {{-3, -5}, "-3.000000005"},
                                                    {{0, -500000000}, "-0.500000000"},
                                                    {{12, 34}, "12.000000034"}};
  for (const auto& row : rising) {
    std::ostringstream out;
    out << row.first;
    EXPECT_EQ(row.second, out.str());
    for (const auto& other : rising) EXPECT_EQ(&row < &other, row.first < other.first) << row.second;
  }
}

}  // namespace
