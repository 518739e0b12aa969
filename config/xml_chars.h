// Characters of the XML dialect, and reading them one at a time.
//
// Internal to the XML text layer. Classification is that of the classic locale, whatever the process has set.

#pragma once

#include <array>
#include <istream>
#include <string_view>

namespace xml {

enum CharClass : unsigned char {
  kSpace = 1,      // isspace in the classic locale
  kNameStart = 2,  // first character of a name
  kName = 4,       // any further character of a name, ";" included
  kMarkup = 8,     // "<", ">" and both quotes: text ends here
};

namespace detail {

constexpr std::array<unsigned char, 256> MakeClasses() {
  std::array<unsigned char, 256> classes{};
  const auto add = [&classes](std::string_view characters, int bits) {
    for (const char c : characters) classes[static_cast<unsigned char>(c)] |= static_cast<unsigned char>(bits);
  };
  add(" \t\n\v\f\r", kSpace);
  add("0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ", kNameStart | kName);
  add("&_:", kNameStart);
  add("-._:;", kName);
  add("<>\"'", kMarkup);
  return classes;
}

inline constexpr std::array<unsigned char, 256> kClasses = MakeClasses();

}  // namespace detail

// True when the character, given as itself or as the unsigned value that CharReader returns, has one of the classes.
inline bool Is(int c, int classes) {
  return (detail::kClasses[static_cast<unsigned char>(c)] & classes) != 0;
}

// Reads straight from a stream's buffer: no sentry and, while the buffer holds characters, no virtual call.
// A character is looked at before it is taken, so nothing is ever put back.
class CharReader {
 public:
  static constexpr int kEnd = -1;

  explicit CharReader(std::istream& in) : _in(in), _buffer(in.rdbuf()) {}

  // The next character as 0 to 255, left in place; at the end kEnd, and the eofbit is set.
  int Peek() {
    const int c = _buffer->sgetc();
    if (c == kEnd) _in.setstate(std::ios_base::eofbit);
    return c;
  }

  // Takes the character that Peek has just shown and shows the one behind it.
  int Next() {
    _buffer->sbumpc();
    return Peek();
  }

  // Takes the character that Peek has just shown.
  void Skip() { _buffer->sbumpc(); }

  // Takes the next character; at the end kEnd, and both eofbit and failbit are set, as get() does.
  int Get() {
    const int c = _buffer->sbumpc();
    if (c == kEnd) _in.setstate(std::ios_base::eofbit | std::ios_base::failbit);
    return c;
  }

 private:
  std::istream& _in;
  std::streambuf* _buffer;
};

static_assert(CharReader::kEnd == std::char_traits<char>::eof());

}  // namespace xml
