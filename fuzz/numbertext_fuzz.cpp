// Numbers off the front of any text, beside the extraction of a stream of the classic locale: value, failure and what
// stays unread. And numbers of any bits into text, beside the same stream's insertion.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <sstream>
#include <string>

#include "runtime/numbertext.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

template <class Number>
void Take(const std::string& text, Number (*take)(std::string_view&, bool&)) {
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  Number expected = 0;
  stream >> std::noskipws >> expected;
  const bool expected_failed = stream.fail();
  stream.clear();
  const std::string expected_rest(std::istreambuf_iterator<char>(stream), {});
  std::string_view rest(text);
  bool failed = false;
  const Number value = take(rest, failed);
  Require(failed == expected_failed && rest == expected_rest);
  Require(std::memcmp(&value, &expected, sizeof value) == 0);
  failed = true;
  rest = text;
  take(rest, failed);
  Require(failed);  // for good
}

double TakeFromBuffer(std::string_view& text, bool& failed) {
  std::stringbuf buffer{std::string(text)};
  const double value = TakeDouble(buffer, failed);
  text.remove_prefix(text.size() - static_cast<size_t>(buffer.in_avail() < 0 ? 0 : buffer.in_avail()));
  return value;
}

template <class... Numbers>
std::string Streamed(Numbers... numbers) {
  std::ostringstream out;
  out.imbue(std::locale::classic());
  (out << ... << numbers);
  return out.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  Take<double>(text, TakeDouble);
  Take<double>(text, TakeFromBuffer);
  Take<float>(text, TakeFloat);
  Take<int32_t>(text, TakeInteger);
  Take<uint32_t>(text, TakeUnsigned);

  int64_t whole = 0;
  double real = 0;
  std::memcpy(&whole, text.data(), std::min(size, sizeof whole));
  std::memcpy(&real, text.data(), std::min(size, sizeof real));
  const int width = static_cast<int>(size % 24);
  std::string written = "kept ";
  AppendInteger(written, whole, width);
  AppendInteger(written += ' ', whole);
  AppendDouble(written += ' ', real);
  AppendDouble(written += ' ', std::fmod(real, 100));
  const double nan = std::nan("");
  const auto one_nan = [nan](double value) { return std::isnan(value) ? nan : value; };
  Require(written == Streamed("kept ", std::internal, std::setfill('0'), std::setw(whole < 0 ? width + 1 : width),
                              whole, ' ', whole, ' ', one_nan(real), ' ', one_nan(std::fmod(real, 100))));
  return 0;
}
