#include "logging/includecols.h"

#include <gtest/gtest.h>

namespace {

// Lines as docs/data-files.md works them out; whatever else the filter does, its oracle knows.
TEST(IncludeCols, ThinsLinesOutAndClosesThemWithASumOfTheirOwn) {
  IncludeCols filter;
  EXPECT_EQ("DATAH\tCHK\n", filter.ColsToExclude({"SECONDS", "TEMP"}));
  EXPECT_EQ("DATAH\tTIME\tCHK\n", filter.ColsToInclude({"TIME", "CH4", "TEMP", "MSEC", "CHK", "NONE"}));
  EXPECT_EQ("DATAH\tTIME\tSECONDS\tNANOSECONDS\tCH4\tCHK\n",
            filter.ApplyFilterToDATAH({"MSEC", "SECONDS", "NANOSECONDS", "CH4", "TEMP", "CHK"}));
  const std::vector<std::string> values = {"1", "1714566600", "100000000", "2.0153", "21.5", " 37"};
  EXPECT_EQ("DATA\t00:00:00\t1714566600\t100000000\t2.0153\t185\n", filter.ApplyFilterToDATA(values));
  filter.ColsToInclude({"CH4", "DATE"});
  EXPECT_EQ("DATA\t1970-01-01\t1714566600\t100000000\t2.0153\t 18\n", filter.ApplyFilterToDATA(values));
  filter.ColsToInclude({"CH4"});
  EXPECT_EQ("DATA\t1714566600\t100000000\t2.0153\t 28\n", filter.ApplyFilterToDATA(values));
  EXPECT_EQ("DATA\t1714566600\t 48\n", filter.ApplyFilterToDATA({"1", "1714566600"}));
}

}  // namespace
