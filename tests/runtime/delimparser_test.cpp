#include "runtime/delimparser.h"

#include <gtest/gtest.h>

namespace {

using Records = std::vector<std::string>;

TEST(DelimParser, CutsTheSameRecordsHoweverTheBytesArrive) {
  const struct {
    Records delimiters;
    std::string data;
    Records taken;  // each record, and the delimiter that ended it
  } rows[] = {{{"\n"}, "one\n\nrest", {"one\n", "\n", "\n", "\n"}},
              {{"</e>", "</a>"}, "1</a>2\n</e></e><", {"1</a>", "</a>", "2\n</e>", "</e>", "</e>", "</e>"}},
              {{"\n", "\n\r"}, "a\n\rb", {"a\n", "\n"}},            // a tie
              {{"aab"}, "aaabaab", {"aaab", "aab", "aab", "aab"}},  // a false start
              {{"", ";"}, "a;b", {"a;", ";"}},
              {{""}, "abc", {}},
              {{}, "a\n", {}}};
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
      EXPECT_EQ(row.taken, taken) << row.data << ", chunks of " << size;
      parser.AppendRawData(std::vector<char>{'\0'});
      EXPECT_TRUE(parser.GetNextStringToEOL(record, '\0') && record == rest + '\0') << row.data << ", " << size;
    }
}

TEST(DelimParser, KeepsNoStaleSearchWhenOperationsAreMixed) {
  DelimParser parser("\n");
  std::string record;
  parser.AppendRawData("a;b<e");
  EXPECT_FALSE(parser.GetNextDelimString(record));      // all searched for a line feed,
  EXPECT_TRUE(parser.GetNextStringToEOL(record, ';'));  // nothing for a semicolon
  parser.AddDelimiter("<e>");
  parser.AppendRawData(">c\nleft");
  for (const char* expected : {"b<e>", "c\n"})
    EXPECT_TRUE(parser.GetNextDelimString(record) && record == expected) << record;
  EXPECT_FALSE(parser.GetNextDelimString(record));
}

TEST(DelimParser, GivesBlocksByTheirSize) {
  const struct {
    const char* data;     // nullptr: cleared
    unsigned int expect;  // 0: nothing is announced
    bool taken, isBLOB;
    const char* out;
  } steps[] = {{"line\na\nb", 0, true, false, "line\n"},
               {"", 5, false, true, ""},
               {"\n\rz\n", 0, true, true, "a\nb\n\r"},
               {"", 0, true, false, "z\n"},
               {"x", 2, false, true, ""},
               {nullptr, 0, false, true, ""},
               {"\n\n\n", 0, true, true, "\n\n"}};
  DelimParser parser;
  for (const auto& step : steps) {
    std::string out;
    bool isBLOB = !step.isBLOB;
    step.data == nullptr ? parser.ClearRawData() : parser.AppendRawData(std::string(step.data));
    if (step.expect != 0) parser.ExpectBLOB(step.expect);
    const bool taken = parser.GetNextStringOrBLOB(out, isBLOB);
    EXPECT_TRUE(step.taken == taken && step.isBLOB == isBLOB && step.out == out) << &step - steps << out;
  }
}

}  // namespace
