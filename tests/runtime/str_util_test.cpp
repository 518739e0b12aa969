#include "runtime/str_util.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

TEST(StrUtil, StripsCharacters) {
  EXPECT_EQ('<', FirstNonWhite("\t \n<a"));
  EXPECT_EQ('\xA0', FirstNonWhite(" \xA0x"));
  EXPECT_EQ('\0', FirstNonWhite(" \r\n"));
  EXPECT_EQ(" a b c ", StripNonSpaceWS(" a\t b\r\n c "));
  EXPECT_EQ(" a bc ", StripNonSpaceWSOne("  a \t b\nc  "));
  EXPECT_EQ("123000", StripCharacter(":12:30:00:", ':'));
  const std::pair<const char*, const char*> rows[] = {
      {" \t\n hello \n\t again \t\n\n", "hello \n\t again"},
      {"\f\v\r x \r\v\f", "x"},
      {"\n\t  \n\t", ""},
      {"", ""},
      {"\xA0 no-break spaces are text \xA0", "\xA0 no-break spaces are text \xA0"},
  };
  for (const auto& [given, stripped] : rows) {
    std::string text = given;
    StripEndWS(text);
    EXPECT_EQ(stripped, text);
  }
}

TEST(StrUtil, ComparesWithoutCase) {
  const struct {
    const char *first, *second;
    int expected;
  } rows[] = {
      {"hello", "HELLO", 0},
      {"hello1", "HELLO2", -1},
      {"HELLO1", "hello2", -1},
      {"", "", 0},
      {"abc", "cba", -1},
      {"", "a", -1},
      {"hello", "hello again", -1},
      {"abc", "b", -1},
      {"z", "\xE9", -1},
      {"_", "A", -1},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.expected, CaseInsensitiveStringCompare(row.first, row.second)) << row.first << ", " << row.second;
    EXPECT_EQ(-row.expected, CaseInsensitiveStringCompare(row.second, row.first)) << row.second << ", " << row.first;
  }
}

TEST(StrUtil, FindsWithoutCase) {
  const unsigned int none = 0xFFFFFFFF;
  const struct {
    const char *haystack, *needle;
    unsigned int start, expected;
  } rows[] = {
      {"This is junk CONTENT-typer", "Content-Type", 0, 13},
      {"This is junk CONTENT-typ", "Content-Type", 0, none},
      {"CONTENT-TYPEcontent-type", "Content-Type", 1, 12},
      {"abcabc", "", 3, 3},
      {"abc", "", 3, none},
      {"abc", "c", 4, none},
      {"", "", 0, none},
  };
  for (const auto& row : rows)
    EXPECT_EQ(row.expected, CaseInsensitiveStringFind(row.haystack, row.needle, row.start)) << row.haystack;
}

TEST(StrUtil, SplitsACommandLine) {
  const std::pair<const char*, std::vector<std::string>> rows[] = {
      {"'START'  /usr/bin/bash  -c  'echo  BEGIN' ", {"START", "/usr/bin/bash", "-c", "echo  BEGIN"}},
      {"\"BEGIN of line END\"", {"BEGIN of line END"}},
      {"no 'blank'", {"no", "'blank'"}},
      {"'blank' \"it's\" 'say \"no\" '", {"blank", "it's", "say \"no\" "}},
      {"'never closed here", {"never closed here"}},
      {"in'side 'a'b '' c", {"in'side", "a", "b", "c"}},
      {"   ", {}},
      {"", {}},
  };
  for (const auto& [command, expected] : rows) {
    std::vector<std::string> words;
    SplitCmdLine(command, words);
    EXPECT_EQ(expected, words) << command;
  }
}

}  // namespace
