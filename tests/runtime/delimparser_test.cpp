#include "runtime/delimparser.h"

#include <gtest/gtest.h>

namespace {

using Records = std::vector<std::string>;

TEST(DelimParser, CutsTheSameRecordsHoweverTheBytesArrive) {
  const struct {
    const char* row;
    Records delimiters;
    std::string data;
    Records taken;  // each record, and the delimiter that ended it
  } rows[] = {
      {"lines", {"\n"}, "one\n\nrest", {"one\n", "\n", "\n", "\n"}},
      {"tags", {"</e>", "</a>"}, "1</a>2\n</e></e><", {"1</a>", "</a>", "2\n</e>", "</e>", "</e>", "</e>"}},
      {"tie", {"\n", "\n\r"}, "a\n\rb", {"a\n", "\n"}},
      {"a false start", {"aab"}, "aaabaab", {"aaab", "aab", "aab", "aab"}},
      {"empty in front", {"", ";"}, "a;b", {"a;", ";"}},
      {"empty alone", {""}, "abc", {}},
      {"none", {}, "a\n", {}},
  };
  for (const auto& row : rows)
    for (size_t size = row.data.size(); size > 0; --size) {
      DelimParser parser;
      for (const auto& delimiter : row.delimiters) parser.AddDelimiter(delimiter);
      Records taken;
      std::string record, delimiter, rest = row.data;
      for (size_t i = 0; i < row.data.size(); i += size) {
        parser.AppendRawData(row.data.substr(i, size));
        for (; parser.GetNextDelimString(record, delimiter); rest.erase(0, record.size()))
          taken.insert(taken.end(), {record, delimiter});
      }
      EXPECT_EQ(row.taken, taken) << row.row << ", chunks of " << size;
      parser.AppendRawData(std::vector<char>{'\0'});
      EXPECT_TRUE(parser.GetNextStringToEOL(record, '\0'));
      EXPECT_EQ(rest + '\0', record) << row.row << ", chunks of " << size;
    }
}

TEST(DelimParser, KeepsNoStaleSearchWhenOperationsAreMixed) {
  DelimParser parser("\n");
  std::string record;
  parser.AppendRawData("a;b");
  EXPECT_FALSE(parser.GetNextDelimString(record));      // all searched for a line feed,
  EXPECT_TRUE(parser.GetNextStringToEOL(record, ';'));  // nothing for a semicolon
  EXPECT_EQ("a;", record);
  parser.AppendRawData("<e");
  EXPECT_FALSE(parser.GetNextStringToEOL(record, '>'));
  parser.AddDelimiter("<e>");  // half of it is there, and searched for other things
  parser.AddDelimiter("<");
  parser.AppendRawData(">c\nd<e><e>x<");
  for (const char* expected : {"b<e>", "c\n", "d<e>", "<e>", "x<"}) {
    EXPECT_TRUE(parser.GetNextDelimString(record));
    EXPECT_EQ(expected, record);
  }
  parser.AppendRawData("left");
  EXPECT_FALSE(parser.GetNextDelimString(record));
  parser.ClearRawData();
  parser.AppendRawData("e><e>");
  EXPECT_TRUE(parser.GetNextDelimString(record));
  EXPECT_EQ("e><e>", record);
}

TEST(DelimParser, GivesBlocksByTheirSize) {
  const struct {
    std::string data;
    unsigned int expect;  // 0: nothing is announced
    bool taken, isBLOB;
    std::string out;
  } steps[] = {
      {"line\na\nb", 0, true, false, "line\n"},
      {"", 5, false, true, ""},
      {"\n\rz\n", 0, true, true, "a\nb\n\r"},
      {"", 0, true, false, "z\n"},
      {"x", 2, false, true, ""},
      {"clear", 0, false, true, ""},
      {"\n\n\n", 0, true, true, "\n\n"},
      {"", 0, true, false, "\n"},
  };
  DelimParser parser;
  for (const auto& step : steps) {
    std::string out;
    bool isBLOB = !step.isBLOB;
    if (step.data == "clear")
      parser.ClearRawData();
    else
      parser.AppendRawData(step.data);
    if (step.expect != 0) parser.ExpectBLOB(step.expect);
    EXPECT_EQ(step.taken, parser.GetNextStringOrBLOB(out, isBLOB)) << &step - steps;
    EXPECT_EQ(step.isBLOB, isBLOB) << &step - steps;
    EXPECT_EQ(step.out, out) << &step - steps;
  }
}

}  // namespace
