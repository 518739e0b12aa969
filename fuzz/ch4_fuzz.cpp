// Lines into the methane decoder, each as it came and data once more with the sum put right. The records must be those
// of a second decoder, which looks each name up in the header.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "analyser/ch4device.h"
#include "runtime/datachecksum.h"
#include "runtime/numbertext.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

using Words = std::vector<std::string_view>;

Words Split(std::string_view line) {
  constexpr char kWhite[] = " \t\n\v\f\r";
  Words words;
  words.reserve(32);
  for (size_t end = 0, begin; (begin = line.find_first_not_of(kWhite, end)) != line.npos;) {
    end = std::min(line.find_first_of(kWhite, begin), line.size());
    words.push_back(line.substr(begin, end - begin));
  }
  return words;
}

// Of the last word that is `name`, and far beyond all where none is.
size_t IndexOf(const Words& words, const char* name) {
  const auto found = std::find(words.rbegin(), words.rend() - 1, name);
  return found == words.rend() - 1 ? SIZE_MAX : static_cast<size_t>(words.rend() - found) - 2;
}

// Keeps the headers as they came. How a word becomes a number is the business of another oracle.
class PlainDecoder {
 public:
  std::optional<CH4Data> Take(const std::string& line) {
    if (line.size() < 10 || line[0] != 'D') return {};
    const Words words = Split(line);
    if (words[0] == "DATA" && CheckSumAgrees(line)) return _Record(words);
    if (words[0] == "DATAH") _LearnColumns(words);
    if (words[0] == "DATADIAGH") _LearnBits(words);
    return {};
  }

 private:
  void _LearnColumns(const Words& words) {
    _columns = std::set<std::string_view>(words.begin() + 1, words.end()).size();
    _places.clear();
    for (const char* name : kNames) _places.push_back(IndexOf(words, name));
  }

  void _LearnBits(const Words& words) {
    const auto mask = [&](std::initializer_list<const char*> names) {
      uint32_t bits = 0;
      for (const char* name : names)
        if (const size_t bit = IndexOf(words, name); bit < 32) bits |= uint32_t{1} << bit;
      return bits;
    };
    _warnings = mask({"BADTEMP", "MOTORSPINNING"});
    _failures = mask({"BLOCKTEMPUNREG", "LASTERTEMPUNREG", "NOSIGNAL", "NOTREADY", "REFUNLOCKED"});
  }

  std::optional<CH4Data> _Record(const Words& words) const {
    if (words.size() - 1 < _columns) return {};
    CH4Data data;
    uint32_t diag = 0;
    bool failed = false;
    for (size_t i = 0; i < _places.size(); ++i) {
      if (i >= 3) data.values[i - 3] = -999.9;
      if (_places[i] >= _columns) continue;
      std::string_view word = words[_places[i] + 1];
      if (i == 0) data.seconds = TakeInteger(word, failed);
      if (i == 1) data.nanoseconds = TakeInteger(word, failed);
      if (i == 2) diag = TakeUnsigned(word, failed);
      if (i >= 3) data.values[i - 3] = TakeDouble(word, failed);
    }
    data.errorFlags = (diag & _failures) != 0 ? 544 : (diag & _warnings) != 0 ? 32 : 0;
    return data;
  }

  static constexpr std::array kNames = {"SECONDS", "NANOSECONDS", "DIAG", "CH4D", "CH4",  "TEMP", "PRESSURE",
                                        "RSSI",    "DROPRATE",    "AUX1", "AUX2", "AUX3", "AUX4"};
  size_t _columns = 0;
  std::vector<size_t> _places = std::vector<size_t>(kNames.size(), SIZE_MAX);  // of kNames
  uint32_t _warnings = 0, _failures = 0;
};

class Both : public CH4Device::Listener {
 public:
  Both() { _device.RegisterListener(this); }

  void Take(const std::string& line) {
    _record.reset();
    _device.HeadGotLine(line);
    const std::optional<CH4Data> plain = _plain.Take(line);
    REQUIRE(plain.has_value() == _record.has_value());
    if (!plain) return;
    REQUIRE(_record->seconds == plain->seconds && _record->nanoseconds == plain->nanoseconds);
    REQUIRE(_record->errorFlags == plain->errorFlags && _record->reserved16 == 0);
    for (const auto reserved : _record->reserved8) REQUIRE(reserved == 0);
    REQUIRE(std::memcmp(_record->values.data(), plain->values.data(), sizeof plain->values) == 0);
  }

  void GotCH4Data(const CH4Data& data) override {
    REQUIRE(!_record);
    _record = data;
  }

 private:
  // Where there is a bus, the link's look at it happens once in the life of the program.
  CH4Device _device{false};
  PlainDecoder _plain;
  std::optional<CH4Data> _record;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Both both;
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  while (!rest.empty()) {
    const size_t end = std::min(rest.find('\n'), rest.size() - 1) + 1;
    std::string line(rest.substr(0, end));
    rest.remove_prefix(end);
    both.Take(line);
    if (!line.starts_with("DATA\t") || CheckSumAgrees(line)) continue;
    line.resize(line.rfind('\t') + 1);
    AppendCheckSum(line);
    both.Take(line);
  }
  // As if nothing had been learned, and nothing be kept: what a run holds at its end is taken for a leak.
  for (const char* header : {"DATAH     \n", "DATADIAGH \n"}) both.Take(header);
  return 0;
}
