#include "runtime/str_util.h"

#include <gmock/gmock.h>

#include <utility>

namespace {

TEST(StrUtil, StripsCharacters) {
  EXPECT_EQ('\xA0', FirstNonWhite("\t \n\xA0x"));
  EXPECT_EQ(" a b c ", StripNonSpaceWS(" a\t b\r\n c "));
  EXPECT_EQ(" a bc ", StripNonSpaceWSOne("  a \t b\nc  "));
  EXPECT_EQ("123000", StripCharacter(":12:30:00:", ':'));
  for (const auto& [given, stripped] : {std::pair{"\t hello \n\t again\v\r\n", "hello \n\t again"}, {"\n ", ""}}) {
    std::string text = given;
    StripEndWS(text);
    EXPECT_EQ(stripped, text);
  }
}

TEST(StrUtil, ComparesAndFindsWithoutCase) {
  const char* rising[] = {"", "_", "A", "abcd", "B", "\xE9"};
  for (const auto& a : rising)
    for (const auto& b : rising) EXPECT_EQ((&a > &b) - (&a < &b), CaseInsensitiveStringCompare(a, b)) << a << ", " << b;
  EXPECT_EQ(0, CaseInsensitiveStringCompare("Hello", "hELLO"));
  const struct {
    const char *haystack, *needle;
    unsigned int start, expected;
  } rows[] = {{"This is CONTENT-typer", "Content-Type", 0, 8},
              {"CONTENT-TYP", "Content-Type", 0, 0xFFFFFFFF},
              {"TYPEtype", "Type", 1, 4},
              {"abc", "", 3, 0xFFFFFFFF},
              {"abc", "c", 4, 0xFFFFFFFF}};
  for (const auto& row : rows)
    EXPECT_EQ(row.expected, CaseInsensitiveStringFind(row.haystack, row.needle, row.start)) << row.haystack;
}

TEST(StrUtil, SplitsACommandLine) {
  std::vector<std::string> words;
  SplitCmdLine("/bin/bash  -c 'echo  BEGIN'  in'side \"it's\" '' 'a'b 'never closed", words);
  const char* expected[] = {"/bin/bash", "-c", "echo  BEGIN", "in'side", "it's", "a", "b", "never closed"};
  EXPECT_THAT(words, testing::ElementsAreArray(expected));
}

}  // namespace
