// The string jobs, each beside a plain second form. A text is also taken as two, parted by its first byte: what is
// compared, and what is looked for in what.

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "runtime/str_util.h"

namespace {

using Words = std::vector<std::string>;

void Require(bool holds) {
  if (!holds) std::abort();
}

bool Space(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

Words Split(const std::string& line) {
  const size_t blank = line.find(' ');
  if (blank == std::string::npos) return line.empty() ? Words() : Words{line};
  const bool quoted = line[0] == '\'' || line[0] == '"';
  const size_t end = quoted ? line.find(line[0], 1) : blank;
  if (end == std::string::npos) return {line.substr(1)};  // never empty: the blank is there
  const std::string word = line.substr(quoted ? 1 : 0, quoted ? end - 1 : end);
  Words words = Split(line.substr(end + 1));
  if (!word.empty()) words.insert(words.begin(), word);
  return words;
}

void CheckWords(const std::string& text) {
  Words words = {"kept"};
  SplitCmdLine(text, words);
  Words expected = Split(text);
  expected.insert(expected.begin(), "kept");
  Require(words == expected);

  std::istringstream in(text);
  std::string_view rest = text, word = "untouched";
  for (std::string next; in >> next;) Require(NextWord(rest, word) && word == next);
  const std::string_view last = word;
  Require(!NextWord(rest, word) && word == last && rest.empty());
}

void CheckStripping(const std::string& text) {
  std::string none_but_blanks, one_blank, stripped = text, expected = text;
  for (const char c : text)
    if (c == ' ' || !Space(c)) none_but_blanks += c;
  for (const char c : none_but_blanks)
    if (one_blank.empty() || c != ' ' || one_blank.back() != ' ') one_blank += c;
  Require(StripNonSpaceWS(text) == none_but_blanks && StripNonSpaceWSOne(text) == one_blank);
  StripEndWS(stripped);
  while (!expected.empty() && Space(expected.back())) expected.pop_back();
  while (!expected.empty() && Space(expected.front())) expected.erase(0, 1);
  Require(stripped == expected && FirstNonWhite(text) == (expected.empty() ? '\0' : expected[0]));
  std::string_view rest = text;
  SkipSpace(rest);
  Require(rest.size() == (expected.empty() ? 0 : text.size() - text.find(expected)));
  for (const char unwanted : {text.empty() ? 'x' : text[text.size() / 2], ' '}) {
    std::string without;
    for (const char c : text)
      if (c != unwanted) without += c;
    Require(StripCharacter(text, unwanted) == without);
  }
}

void CheckCaseless(const std::string& first, const std::string& second) {
  const int order = Lower(first).compare(Lower(second));
  Require(CaseInsensitiveStringCompare(first, second) == (order > 0) - (order < 0));
  for (size_t start = 0; start <= first.size() + 1; ++start) {
    const size_t found = start < first.size() ? Lower(first).find(Lower(second), start) : std::string::npos;
    Require(CaseInsensitiveStringFind(first, second, static_cast<unsigned int>(start)) ==
            (found == std::string::npos ? 0xFFFFFFFF : found));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size < 100 ? size : 100);
  CheckWords(text);
  CheckStripping(text);
  if (text.empty()) return 0;
  const size_t half = text.find(text[0], 1);
  CheckCaseless(text.substr(1, half - 1), half == std::string::npos ? text.substr(1) : text.substr(half + 1));
  return 0;
}
