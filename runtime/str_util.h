// Small string jobs that recur everywhere.
//
// A space character is one for which isspace(3) holds, a blank is ' ' alone. Letters are compared after tolower(3),
// byte by byte as unsigned values. Nothing here throws by itself, and any thread may call any of it.

#pragma once

#include <string>
#include <string_view>
#include <vector>

// The first character that is not space; 0 if there is none.
char FirstNonWhite(const std::string& text);

// A copy without any space character, blanks excepted.
std::string StripNonSpaceWS(const std::string& text);

// The same, and each run of blanks becomes one blank. A removed character doesn't interrupt a run.
std::string StripNonSpaceWSOne(const std::string& text);

std::string StripCharacter(const std::string& text, char unwanted);

// Removes space characters, as the classic locale classifies them, from both ends in place.
void StripEndWS(std::string& text);

// -1, 0 or 1, as `first` sorts before, with or behind `second`. A text sorts behind its own beginning.
int CaseInsensitiveStringCompare(const std::string& first, const std::string& second);

// The "not found" of CaseInsensitiveStringFind: 32 bits on every platform, so not std::string::npos.
constexpr unsigned int kCaseInsensitiveNotFound = 0xFFFFFFFF;

// Where `needle` first stands at or behind `start`, counted from the beginning of `haystack`. An empty needle is found
// at `start`, but nothing is found from a start at or past the end.
unsigned int CaseInsensitiveStringFind(const std::string& haystack, const std::string& needle, unsigned int start);

// Appends the words of a command line to `words`: parted by blanks, or held together by single or double quotes, which
// are taken off. There is no escape character, a quote inside a word is a plain character, and no word is empty.
//
// A closing quote is only looked for where a blank follows the opening one. So a last word in quotes that has no blank
// inside keeps its quotes; with a blank inside it loses them. Commands are written with that in mind.
void SplitCmdLine(const std::string& command, std::vector<std::string>& words);

// Words of any white space between them, as the classic locale has it.

inline bool IsClassicSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
// These two only move the front of `text`.
void SkipSpace(std::string_view& text);
// False, and `word` as it was, when only space is left. The word is a part of the text, which has to outlive it.
bool NextWord(std::string_view& text, std::string_view& word);
