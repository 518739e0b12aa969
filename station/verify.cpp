#include "station/verify.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iomanip>
#include <sstream>
#include <utility>

#include "runtime/datachecksum.h"

namespace {

constexpr int64_t kSecond = 1'000'000'000;  // nanoseconds

// What each file begins with, and begins again where it was continued.
constexpr std::array<std::string_view, 7> kHead = {"Model:\t",         "File Type:\t",        "Instrument:\t",
                                                   "Serial Number:\t", "Software Version:\t", "Timestamp:\t",
                                                   "Timezone:\t"};

// The field of that number behind the key.
std::string_view Field(std::string_view line, int number) {
  for (; number >= 0; --number) line.remove_prefix(std::min(line.find('\t'), line.size() - 1) + 1);
  return line.substr(0, line.find('\t'));
}

bool Take(std::string_view text, int64_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

void Verifier::Feed(std::string_view bytes) {
  for (size_t end; (end = bytes.find('\n')) != std::string_view::npos; bytes.remove_prefix(end + 1)) {
    ++_line;
    if (_rest.empty()) {
      _Look(bytes.substr(0, end + 1));
    } else {
      _rest.append(bytes, 0, end + 1);
      _Look(_rest);
      _rest.clear();
    }
  }
  _rest += bytes;
}

void Verifier::End() {
  if (_line == 0 && _rest.empty()) {
    ++_line;
    return _Find("the file is empty");
  }
  if (_rest.empty()) return;
  ++_line;
  _Find("the line is cut off");
}

void Verifier::_Look(std::string_view line) {
  if (line.starts_with(_key) && !_key.empty()) return _LookAtData(line);
  if (std::any_of(kHead.begin(), kHead.end(), [&](std::string_view text) { return line.starts_with(text); })) return;
  if (const size_t head = line.find(kHead[0]); head != std::string_view::npos)
    return _Find("the line is cut off, and a head follows in it");
  const std::string_view key = line.substr(0, std::min(line.find('\t'), line.size()));
  if (key.ends_with('H') && line.ends_with("\tCHK\n")) return _LookAtHeader(line, key);
  if (key.ends_with('U') && !_key.empty() && key.substr(0, key.size() - 1) == _key.substr(0, _key.size() - 1)) {
    if (std::count(line.begin(), line.end(), '\t') != _columns) _Find("there are not as many units as names");
    return;
  }
  _Find(_key.empty() ? "no header stands in front of it" : "that is no line of a data file");
}

void Verifier::_LookAtHeader(std::string_view line, std::string_view key) {
  _key = std::string(key.substr(0, key.size() - 1)) + '\t';
  _columns = std::count(line.begin(), line.end(), '\t');
  _seconds = _nanoseconds = -1;
  for (int i = 0; i < _columns; ++i) {
    const std::string_view name = Field(line, i);
    if (name == "SECONDS") _seconds = i;
    if (name == "NANOSECONDS") _nanoseconds = i;
  }
}

void Verifier::_LookAtData(std::string_view line) {
  ++_records;
  if (!CheckSumAgrees(line) || line[line.size() - 5] != '\t') return _Find("the sum is wrong");
  if (const auto columns = std::count(line.begin(), line.end(), '\t'); columns != _columns)
    return _Find(std::to_string(columns) + " columns, where the header has " + std::to_string(_columns));
  if (_seconds >= 0) _LookAtTime(line);
}

void Verifier::_LookAtTime(std::string_view line) {
  int64_t seconds = 0, nanoseconds = 0;
  if (!Take(Field(line, _seconds), seconds) || (_nanoseconds >= 0 && !Take(Field(line, _nanoseconds), nanoseconds)) ||
      seconds < 0 || seconds > UINT32_MAX || nanoseconds < 0 || nanoseconds >= kSecond)
    return _Find("the time can't be read");
  const int64_t now = seconds * kSecond + nanoseconds;
  const int64_t last = std::exchange(_last, now);
  const bool first = !std::exchange(_timed, true);
  if (last == INT64_MIN || (first && now < last)) return;
  const double step = static_cast<double>(now - last) / kSecond;
  if (step >= 0 && (_gap <= 0 || step <= _gap)) return;
  std::ostringstream text;
  text << std::fixed << std::setprecision(3);
  if (step < 0)
    text << "the time goes back by " << -step << " s";
  else
    text << "a gap of " << step << " s stands in front of it";
  _Find(text.str());
}
