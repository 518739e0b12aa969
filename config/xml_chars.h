// Characters of the XML dialect, and reading them one at a time.
//
// Internal to the XML text layer. Classification is that of the classic locale, whatever the process has set.

#pragma once

#include <array>
#include <istream>
#include <string>
#include <string_view>

#include "runtime/readahead.h"

namespace xml {

enum CharClass : unsigned char {
  kSpace = 1,      // isspace in the classic locale
  kNameStart = 2,  // first character of a name
  kName = 4,       // any further character of a name, but for the ";" that ends one
  kMarkup = 8,     // "<", ">" and both quotes: text ends here
  kAmpersand = 16,
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
  add("-._:", kName);
  add("<>\"'", kMarkup);
  add("&", kAmpersand);
  return classes;
}

inline constexpr std::array<unsigned char, 256> kClasses = MakeClasses();

}  // namespace detail

// True when the character, given as itself or as the unsigned value that CharReader returns, has one of the classes.
inline bool Is(int c, int classes) {
  return (detail::kClasses[static_cast<unsigned char>(c)] & classes) != 0;
}

// Reads straight from a stream's buffer: no sentry and, while the buffer holds characters, no virtual call.
// A character is looked at before it is taken, so nothing is ever put back. A stream that has reported its end is not
// asked again: a terminal would wait for more. What the buffer throws goes through.
class CharReader {
 public:
  static constexpr int kEnd = -1;

  explicit CharReader(std::istream& in) : _in(in), _buffer(in.rdbuf()) {}

  // The next character as 0 to 255, left in place; at the end kEnd, and the eofbit is set.
  int Peek() {
    const int c = _in.eof() ? kEnd : _buffer->sgetc();
    if (c == kEnd) _in.setstate(std::ios_base::eofbit);
    return c;
  }

  // Takes the character that Peek has just shown.
  void Skip() { _buffer->sbumpc(); }

  // Takes the character that Peek has just shown and shows the one behind it.
  int Next() {
    Skip();
    return Peek();
  }

  // Takes the next character; at the end kEnd, and both eofbit and failbit are set, as get() does.
  int Get() {
    const int c = _in.eof() ? kEnd : _buffer->sbumpc();
    if (c == kEnd) _in.setstate(std::ios_base::eofbit | std::ios_base::failbit);
    return c;
  }

  // Take characters while the condition holds for them, and show the first other one, or kEnd.
  template <typename Condition>
  int SkipWhile(Condition holds) {
    return _take_while(holds, [](std::string_view) {});
  }
  template <typename Condition>
  int TakeWhile(std::string& text, Condition holds) {
    return _take_while(holds, [&text](std::string_view run) { text.append(run); });
  }

 private:
  template <typename Condition, typename Sink>
  int _take_while(Condition holds, Sink sink) {
    for (int c = Peek(); c != kEnd; c = Peek()) {
      // A buffer without a read area hands out one character at a time.
      const std::string_view held = ReadAhead::Of(*_buffer).substr(0, kLongestRun);
      if (held.empty()) {
        if (!holds(c)) return c;
        const char one = static_cast<char>(c);
        sink(std::string_view(&one, 1));
        Skip();
        continue;
      }
      std::size_t taken = 0;
      while (taken < held.size() && holds(held[taken])) ++taken;
      sink(held.substr(0, taken));
      ReadAhead::Skip(*_buffer, static_cast<int>(taken));
      if (taken < held.size()) return static_cast<unsigned char>(held[taken]);
    }
    return kEnd;
  }

  static constexpr std::size_t kLongestRun = 1U << 30;  // what a buffer can be moved on by

  std::istream& _in;
  std::streambuf* _buffer;
};

static_assert(CharReader::kEnd == std::char_traits<char>::eof());

}  // namespace xml
