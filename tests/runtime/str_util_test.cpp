#include "runtime/str_util.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

TEST(StrUtil, StripsCharacters) {
  EXPECT_EQ('\xA0', FirstNonWhite("\t \n\xA0x"));
  EXPECT_EQ('\0', FirstNonWhite(" \r\n"));
  EXPECT_EQ(" a b c ", StripNonSpaceWS(" a\t b\r\n c "));
  EXPECT_EQ(" a bc ", StripNonSpaceWSOne("  a \t b\nc  "));
  EXPECT_EQ("123000", StripCharacter(":12:30:00:", ':'));
  const std::pair<const char*, const char*> rows[] = {{" \f\t\n hello \n\t again \t\v\r\n", "hello \n\t again"},
                                                      {"\n\t ", ""},
                                                      {"", ""},
                                                      {"\xA0 x \xA0", "\xA0 x \xA0"}};
  for (const auto& [given, stripped] : rows) {
    std::string text = given;
    StripEndWS(text);
    EXPECT_EQ(stripped, text);
  }
}

TEST(StrUtil, ComparesAndFindsWithoutCase) {
  const char* rising[] = {"", "_", "A", "ABC", "abcd", "B", "hello1", "HELLO2", "hello3", "Z", "\xE9"};
  for (const auto& a : rising)
    for (const auto& b : rising) EXPECT_EQ((&a > &b) - (&a < &b), CaseInsensitiveStringCompare(a, b)) << a << ", " << b;
  EXPECT_EQ(0, CaseInsensitiveStringCompare("Hello", "hELLO"));
  const struct {
    const char *haystack, *needle;
    unsigned int start, expected;
  } rows[] = {{"This is CONTENT-typer", "Content-Type", 0, 8},
              {"CONTENT-TYP", "Content-Type", 0, 0xFFFFFFFF},
              {"TYPEtype", "Type", 1, 4},
              {"abcabc", "", 3, 3},
              {"abc", "", 3, 0xFFFFFFFF},
              {"abc", "c", 4, 0xFFFFFFFF}};
  for (const auto& row : rows)
    EXPECT_EQ(row.expected, CaseInsensitiveStringFind(row.haystack, row.needle, row.start)) << row.haystack;
}

TEST(StrUtil, SplitsACommandLine) {
  const std::pair<const char*, std::vector<std::string>> rows[] = {
      {"'START'  /usr/bin/bash  -c  'echo  BEGIN' ", {"START", "/usr/bin/bash", "-c", "echo  BEGIN"}},
      {"\"BEGIN of line END\"", {"BEGIN of line END"}},
      {"'blank' \"it's\" 'say \"no\" '", {"blank", "it's", "say \"no\" "}},
      {"no 'blank'", {"no", "'blank'"}},
      {"'never closed here", {"never closed here"}},
      {"in'side 'a'b '' c", {"in'side", "a", "b", "c"}},
      {"   ", {}}};
  for (const auto& [command, expected] : rows) {
    std::vector<std::string> words;
    SplitCmdLine(command, words);
    EXPECT_EQ(expected, words) << command;
  }
}

}  // namespace
