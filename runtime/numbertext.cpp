#include "runtime/numbertext.h"

#include <charconv>
#include <limits>
#include <locale>
#include <sstream>
#include <string>

namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsSign(char c) {
  return c == '+' || c == '-';
}

// Where the characters that can belong to a decimal number end. They needn't make one: "1e" is taken, and fails.
const char* NumberEnd(const char* at, const char* end) {
  bool digits = false, point = false, exponent = false;
  if (at != end && IsSign(*at)) ++at;
  for (; at != end; ++at) {
    if (IsDigit(*at)) {
      digits = true;
    } else if (*at == '.' && !point && !exponent) {
      point = true;
    } else if ((*at == 'e' || *at == 'E') && digits && !exponent) {
      exponent = true;
      if (at + 1 != end && IsSign(at[1])) ++at;
    } else {
      break;
    }
  }
  return at;
}

// A number outside the limits fails and gives the one that it is beyond.
int64_t TakeWhole(std::string_view& text, int64_t least, int64_t most, bool& failed) {
  const char* at = text.data();
  const char* const end = at + text.size();
  const bool negative = at != end && *at == '-';
  if (at != end && IsSign(*at)) ++at;
  const char* const first = at;
  int64_t value = 0;
  bool beyond = false;
  for (; at != end && IsDigit(*at); ++at) {
    beyond = beyond || value > most;
    if (!beyond) value = value * 10 + (*at - '0');
  }
  text.remove_prefix(static_cast<size_t>(at - text.data()));
  if (negative) value = -value;
  beyond = beyond || value < least || value > most;
  failed = failed || beyond || at == first;
  return !beyond ? value : negative ? least : most;
}

}  // namespace

double TakeDouble(std::string_view& text, bool& failed) {
  const char* first = text.data();
  const char* const end = NumberEnd(first, first + text.size());
  text.remove_prefix(static_cast<size_t>(end - first));
  if (first != end && *first == '+') ++first;
  double value = 0;
  const auto [stop, error] = std::from_chars(first, end, value);
  if (error == std::errc::result_out_of_range) {
    // Too small is a number, too large is none: the library's own stream knows.
    std::istringstream extreme(std::string(first, end));
    extreme.imbue(std::locale::classic());
    extreme >> value;
    failed = failed || extreme.fail();
  } else if (error != std::errc() || stop != end) {
    failed = true;
    value = 0;
  }
  return value;
}

int32_t TakeInteger(std::string_view& text, bool& failed) {
  return static_cast<int32_t>(
      TakeWhole(text, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max(), failed));
}

uint32_t TakeUnsigned(std::string_view& text, bool& failed) {
  constexpr int64_t kMost = std::numeric_limits<uint32_t>::max();
  bool bad = false;
  const int64_t value = TakeWhole(text, -kMost, kMost, bad);
  failed = failed || bad;
  return static_cast<uint32_t>(bad && value < 0 ? kMost : value);
}
