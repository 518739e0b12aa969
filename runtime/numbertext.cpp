#include "runtime/numbertext.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <limits>
#include <locale>
#include <sstream>
#include <utility>

namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsSign(char c) {
  return c == '+' || c == '-';
}

// Tells of one character after the other whether it can still belong to a decimal number. Together they needn't make
// one: "1e" is taken, and fails.
class NumberScanner {
 public:
  bool Takes(char c) {
    const bool sign_fits = std::exchange(_sign_fits, false);
    if (IsDigit(c)) return _digits = true;
    if (IsSign(c)) return sign_fits;
    if (c == '.') return !_exponent && !std::exchange(_point, true);
    if ((c != 'e' && c != 'E') || !_digits || _exponent) return false;
    return _exponent = _sign_fits = true;
  }

 private:
  bool _sign_fits = true;  // at the start, and behind the "e"
  bool _digits = false;
  bool _point = false;
  bool _exponent = false;
};

template <class Real>
Real ToReal(std::string_view number, bool& failed) {
  const char* first = number.data();
  const char* const end = first + number.size();
  if (first != end && *first == '+') ++first;
  Real value = 0;
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

template <class Real>
Real TakeReal(std::string_view& text, bool& failed) {
  NumberScanner scanner;
  size_t size = 0;
  while (size < text.size() && scanner.Takes(text[size])) ++size;
  const std::string_view number = text.substr(0, size);
  text.remove_prefix(size);
  return ToReal<Real>(number, failed);
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
  return TakeReal<double>(text, failed);
}

float TakeFloat(std::string_view& text, bool& failed) {
  return TakeReal<float>(text, failed);
}

double TakeDouble(std::streambuf& text, bool& failed) {
  using Traits = std::streambuf::traits_type;
  NumberScanner scanner;
  std::string number;
  for (auto c = text.sgetc(); c != Traits::eof() && scanner.Takes(Traits::to_char_type(c)); c = text.snextc())
    number.push_back(Traits::to_char_type(c));
  return ToReal<double>(number, failed);
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

void AppendInteger(std::string& text, int64_t value, int width) {
  char digits[20];
  const uint64_t amount = value < 0 ? -static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
  const int count = static_cast<int>(std::to_chars(digits, std::end(digits), amount).ptr - digits);
  if (value < 0) text += '-';
  text.append(static_cast<size_t>(std::max(width - count, 0)), '0').append(digits, static_cast<size_t>(count));
}

void AppendDouble(std::string& text, double value) {
  if (std::isnan(value)) {
    text += "nan";
    return;
  }
  char digits[16];  // "-1.23457e-308"
  const char* const end = std::to_chars(digits, std::end(digits), value, std::chars_format::general, 6).ptr;
  text.append(digits, static_cast<size_t>(end - digits));
}
