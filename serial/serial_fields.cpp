#include "serial/serial_fields.h"

#include <charconv>
#include <limits>
#include <locale>
#include <sstream>
#include <string>

namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
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

int HexDigit(char c) {
  const auto code = static_cast<unsigned char>(c);
  return code < 'A' ? code - '0' : code < 'a' ? code - 'A' + 10 : code - 'a' + 10;
}

}  // namespace

// True: a value starts here.
bool FieldStream::_Begin() {
  if (_failed) return false;
  if (_at != _end && (*_at == ',' || *_at == '*')) {
    if (*_at == ',') ++_at;
    return false;
  }
  while (_at != _end && IsSpace(*_at)) ++_at;
  _failed = _at == _end;
  return !_failed;
}

void FieldStream::_End() {
  if (_at == _end)
    _failed = true;
  else
    ++_at;
}

double FieldStream::_Double() {
  const char* first = _at;
  _at = NumberEnd(_at, _end);
  double value = 0;
  if (*first == '+') ++first;
  const auto [stop, error] = std::from_chars(first, _at, value);
  if (error == std::errc::result_out_of_range) {
    // Too small is a number, too large is none: the library's own stream knows.
    std::istringstream extreme(std::string(first, _at));
    extreme.imbue(std::locale::classic());
    extreme >> value;
    _failed = extreme.fail();
  } else if (error != std::errc() || stop != _at) {
    _failed = true;
    value = 0;
  }
  return value;
}

// A number outside the limits fails and gives the one that it is beyond.
int64_t FieldStream::_Whole(int64_t least, int64_t most) {
  const bool negative = *_at == '-';
  if (IsSign(*_at)) ++_at;
  const char* const first = _at;
  int64_t value = 0;
  bool beyond = false;
  for (; _at != _end && IsDigit(*_at); ++_at) {
    beyond = beyond || value > most;
    if (!beyond) value = value * 10 + (*_at - '0');
  }
  if (negative) value = -value;
  beyond = beyond || value < least || value > most;
  _failed = beyond || _at == first;
  return !beyond ? value : negative ? least : most;
}

double GPSReadDouble(FieldStream& fields) {
  if (!fields._Begin()) return 0;
  const double value = fields._Double();
  fields._End();
  return value;
}

char GPSReadChar(FieldStream& fields) {
  if (!fields._Begin()) return ' ';
  const char value = *fields._at++;
  fields._End();
  return value;
}

uint32_t GPSReadUnsigned(FieldStream& fields) {
  if (!fields._Begin()) return 0;
  constexpr int64_t kMost = std::numeric_limits<uint32_t>::max();
  const int64_t value = fields._Whole(-kMost, kMost);
  const bool beyond = fields._failed && value < 0;
  fields._End();
  return static_cast<uint32_t>(beyond ? kMost : value);
}

int32_t GPSReadInteger(FieldStream& fields) {
  if (!fields._Begin()) return 0;
  const int64_t value = fields._Whole(std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max());
  fields._End();
  return static_cast<int32_t>(value);
}

bool ChecksumAgrees(std::string_view sentence) {
  const size_t size = sentence.size();
  if (size < 4) return false;
  unsigned char sum = 0;
  for (const char c : sentence.substr(1, size - 4)) sum ^= static_cast<unsigned char>(c);
  return sum == HexDigit(sentence[size - 2]) * 16 + HexDigit(sentence[size - 1]);
}
