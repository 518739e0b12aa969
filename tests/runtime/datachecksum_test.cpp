#include "runtime/datachecksum.h"

#include <gtest/gtest.h>

namespace {

TEST(DataCheckSum, ReadsAndWritesTheFieldOfThree) {
  const struct {
    const char* line;
    int number;
    bool agrees;
  } rows[] = {
      {"\a  7\n", 7, true}, {"\a7x \r", 7, true}, {"\a -7\n", -7, false}, {"   \n", 0, true}, {"x\n", 0, false}};
  for (const auto& row : rows) {
    EXPECT_EQ(row.number, ReadCheckSum(row.line)) << row.line;
    EXPECT_EQ(row.agrees, CheckSumAgrees(row.line)) << row.line;
  }
  for (const std::string line : {"", "\xff\x1f", "\xff"}) {
    std::string text = line;
    AppendCheckSum(text);
    EXPECT_TRUE(CheckSumAgrees(text)) << text;
    EXPECT_EQ(line.size() + 4, text.size());
  }
}

}  // namespace
