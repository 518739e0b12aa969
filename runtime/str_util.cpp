#include "runtime/str_util.h"

#include <algorithm>
#include <cctype>

namespace {

// The classification takes an unsigned char's value; a plain char may be negative.
bool IsSpace(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

int Lower(char c) {
  return std::tolower(static_cast<unsigned char>(c));
}

}  // namespace

char FirstNonWhite(const std::string& text) {
  const auto found = std::find_if_not(text.begin(), text.end(), IsSpace);
  return found == text.end() ? '\0' : *found;
}

std::string StripNonSpaceWS(const std::string& text) {
  std::string kept;
  kept.reserve(text.size());
  for (const char c : text)
    if (c == ' ' || !IsSpace(c)) kept += c;
  return kept;
}

std::string StripNonSpaceWSOne(const std::string& text) {
  std::string kept;
  kept.reserve(text.size());
  for (const char c : text)
    if (c == ' ' ? kept.empty() || kept.back() != ' ' : !IsSpace(c)) kept += c;
  return kept;
}

std::string StripCharacter(const std::string& text, char unwanted) {
  std::string kept(text);
  std::erase(kept, unwanted);
  return kept;
}

void StripEndWS(std::string& text) {
  text.erase(std::find_if_not(text.rbegin(), text.rend(), IsClassicSpace).base(), text.end());
  text.erase(text.begin(), std::find_if_not(text.begin(), text.end(), IsClassicSpace));
}

int CaseInsensitiveStringCompare(const std::string& first, const std::string& second) {
  const size_t common = std::min(first.size(), second.size());
  for (size_t i = 0; i < common; ++i) {
    const int a = Lower(first[i]);
    const int b = Lower(second[i]);
    if (a != b) return a < b ? -1 : 1;
  }
  if (first.size() == second.size()) return 0;
  return first.size() < second.size() ? -1 : 1;
}

unsigned int CaseInsensitiveStringFind(const std::string& haystack, const std::string& needle, unsigned int start) {
  if (start >= haystack.size()) return kCaseInsensitiveNotFound;
  const auto found = std::search(haystack.begin() + start, haystack.end(), needle.begin(), needle.end(),
                                 [](char a, char b) { return Lower(a) == Lower(b); });
  if (found == haystack.end()) return kCaseInsensitiveNotFound;
  return static_cast<unsigned int>(found - haystack.begin());
}

void SplitCmdLine(const std::string& command, std::vector<std::string>& words) {
  size_t position = 0;
  for (;;) {
    size_t end = command.find(' ', position);
    if (end == std::string::npos) break;
    const char first = command[position];
    if (first == '\'' || first == '"') {
      ++position;
      end = command.find(first, position);
      if (end == std::string::npos) break;
    }
    if (end > position) words.push_back(command.substr(position, end - position));
    position = end + 1;
  }
  if (position < command.size()) words.push_back(command.substr(position));
}

void SkipSpace(std::string_view& text) {
  text.remove_prefix(std::find_if_not(text.begin(), text.end(), IsClassicSpace) - text.begin());
}

bool NextWord(std::string_view& text, std::string_view& word) {
  SkipSpace(text);
  if (text.empty()) return false;
  word = text.substr(0, std::find_if(text.begin(), text.end(), IsClassicSpace) - text.begin());
  text.remove_prefix(word.size());
  return true;
}
