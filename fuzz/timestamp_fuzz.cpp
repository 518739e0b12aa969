// Timestamps from any text in any form: reading from a whole text, through the facets of a locale, and from a buffer
// that is filled bit by bit must agree in value, state and what stays unread. What was read is written, by both ways of
// writing, and reads back.
//
// Input: a byte of choices, a byte for precision and chunk, three separators, and the text.

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <locale>
#include <sstream>
#include <streambuf>
#include <string>

#include "runtime/timestamp.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

struct Form {
  bool separators, quoted;
  char date, datetime, time;
  void Set(std::ios_base& stream) const {
    if (separators) Timestamp::set_separators(stream, date, datetime, time);
    if (quoted) Timestamp::set_quoted(stream);
  }
};

// Shows its text in pieces; what was read may be put back.
class Pieces : public std::streambuf {
 public:
  Pieces(std::string text, size_t size) : _text(std::move(text)), _size(size) {
    setg(_text.data(), _text.data(), _text.data());
  }

 protected:
  int_type underflow() override {
    char* const end = _text.data() + _text.size();
    if (gptr() == end) return traits_type::eof();
    setg(eback(), gptr(), gptr() + std::min<size_t>(_size, static_cast<size_t>(end - gptr())));
    return traits_type::to_int_type(*gptr());
  }

 private:
  std::string _text;
  const size_t _size;
};

struct Result {
  Timestamp value = -7;
  bool good = false;
  std::string rest;
  bool operator==(const Result&) const = default;
};

Result Read(std::istream& in, const Form& form) {
  form.Set(in);
  Result result;
  in >> result.value;
  result.good = in.good();
  REQUIRE(result.good == !in.fail());
  REQUIRE(result.good || result.value == Timestamp(-7));
  in.clear();
  std::getline(in, result.rest, '\0');
  return result;
}

// Nothing differs from the classic locale but its name, so numbers go through the locale's facets.
const std::locale& ThroughFacets() {
  static const std::locale locale(std::locale::classic(), new std::numpunct<char>);
  return locale;
}

std::string Write(double value, const Form& form, int precision) {
  std::ostringstream plain;
  std::ostringstream facets;
  facets.imbue(ThroughFacets());
  for (auto* out : {&plain, &facets}) {
    form.Set(*out);
    out->precision(precision);
    *out << Timestamp(value);
    REQUIRE(out->good() && out->fill() == ' ' && out->width() == 0);
  }
  REQUIRE(plain.str() == facets.str());
  return plain.str();
}

void CheckRoundTrip(const Timestamp& value, bool compact, bool quoted) {
  if (value < Timestamp(0) || value >= Timestamp(2100, 1, 1, 0, 0, 0) - 1) return;
  if (compact && value.sec() < 0.0001) return;  // an exponent would take all the time's digits with it
  if (value.sec() < 0) return;
  const Form form{compact, quoted, 0, 'T', 0};
  std::istringstream in(Write(value.get(), form, 6));
  const Result result = Read(in, form);
  REQUIRE(result.good && result.rest.empty());
  REQUIRE(std::abs((result.value - value).get()) < 0.0001);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 5) return 0;
  const Form form{(data[0] & 1) != 0, (data[0] & 2) != 0, static_cast<char>(data[2]), static_cast<char>(data[3]),
                  static_cast<char>(data[4])};
  const std::string text(reinterpret_cast<const char*>(data) + 5, size - 5);

  std::istringstream whole(text);
  std::istringstream through_facets(text);
  through_facets.imbue(ThroughFacets());
  Pieces pieces(text, 1 + data[1] / 16);
  std::istream in_pieces(&pieces);
  const Result result = Read(whole, form);
  REQUIRE(result == Read(through_facets, form));
  REQUIRE(result == Read(in_pieces, form));

  const int precision = data[1] % 24;
  if (result.good) {
    Write(result.value.get(), form, precision);
    for (const bool compact : {false, true})
      for (const bool quoted : {false, true}) CheckRoundTrip(result.value, compact, quoted);
  }
  double any = 0;
  if (text.size() >= sizeof any) std::memcpy(&any, text.data(), sizeof any);
  Write(any, form, precision);
  Write(std::fmod(std::abs(any), 100), form, precision);
  return 0;
}
