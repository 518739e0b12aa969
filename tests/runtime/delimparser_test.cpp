#include "runtime/delimparser.h"

#include <gtest/gtest.h>

namespace {

TEST(DelimParser, CutsTheSameRecordsHoweverTheBytesArrive) {
  using Texts = std::vector<std::string>;
  const struct {
    Texts delimiters;
    std::string data;
    Texts taken;  // each record, and the delimiter that ended it
  } rows[] = {{{"\n"}, "one\n\nrest", {"one\n", "\n", "\n", "\n"}},
              {{"</e>", "</a>"}, "1</a>2\n</e></e><", {"1</a>", "</a>", "2\n</e>", "</e>", "</e>", "</e>"}},
              {{"", "\n", "\n\r"}, "a\n\rb", {"a\n", "\n"}},         // a tie
              {{"aab"}, "aaabaab", {"aaab", "aab", "aab", "aab"}}};  // a false start
  for (const auto& row : rows)
    for (size_t size = row.data.size(); size > 0; --size) {
      DelimParser parser;
      for (const auto& delimiter : row.delimiters) parser.AddDelimiter(delimiter);
      Texts taken;
      std::string record, delimiter;
      for (size_t i = 0; i < row.data.size(); i += size) {
        parser.AppendRawData(row.data.substr(i, size));
        while (parser.GetNextDelimString(record, delimiter)) taken.insert(taken.end(), {record, delimiter});
      }
      EXPECT_EQ(row.taken, taken) << row.data << ", chunks of " << size;
    }
}

}  // namespace
