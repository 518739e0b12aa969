#include "serial/serial_fields.h"

#include "runtime/numbertext.h"
#include "runtime/str_util.h"

namespace {

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
  while (_at != _end && IsClassicSpace(*_at)) ++_at;
  _failed = _at == _end;
  return !_failed;
}

void FieldStream::_End() {
  if (_at == _end)
    _failed = true;
  else
    ++_at;
}

template <class Number>
Number FieldStream::_Take(Number (*take)(std::string_view& text, bool& failed)) {
  if (!_Begin()) return 0;
  std::string_view text(_at, static_cast<size_t>(_end - _at));
  const Number value = take(text, _failed);
  _at = text.data();
  _End();
  return value;
}

double GPSReadDouble(FieldStream& fields) {
  return fields._Take(TakeDouble);
}

char GPSReadChar(FieldStream& fields) {
  if (!fields._Begin()) return ' ';
  const char value = *fields._at++;
  fields._End();
  return value;
}

uint32_t GPSReadUnsigned(FieldStream& fields) {
  return fields._Take(TakeUnsigned);
}

int32_t GPSReadInteger(FieldStream& fields) {
  return fields._Take(TakeInteger);
}

unsigned char ExclusiveOr(std::string_view bytes) {
  unsigned char sum = 0;
  for (const char c : bytes) sum ^= static_cast<unsigned char>(c);
  return sum;
}

bool ChecksumAgrees(std::string_view sentence) {
  const size_t size = sentence.size();
  if (size < 4) return false;
  return ExclusiveOr(sentence.substr(1, size - 4)) == HexDigit(sentence[size - 2]) * 16 + HexDigit(sentence[size - 1]);
}
