// Lines into the methane decoder, each as it came and once more with its sum put right. The records must be those of a
// second decoder, which takes every line apart with a stream and keeps nothing but what the headers say.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "analyser/ch4device.h"
#include "runtime/datachecksum.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

template <class Number>
Number NumberOf(const std::string& word) {
  static std::istringstream stream;  // making one takes longer than reading from it
  stream.clear();
  stream.str(word);
  Number number = 0;
  stream >> number;
  return number;
}

class PlainDecoder {
 public:
  std::optional<CH4Data> Take(const std::string& line) {
    std::istringstream words(line);
    std::string key;
    if (line.size() < 10 || line[0] != 'D' || !(words >> key)) return {};
    if (key == "DATA" && CheckSumAgrees(line)) return _Record(words);
    if (key != "DATAH" && key != "DATADIAGH") return {};
    auto& numbers = key == "DATAH" ? _columns : _bits;
    numbers.clear();
    int count = 0;
    for (std::string name; words >> name;) numbers[name] = count++;
    return {};
  }

 private:
  std::optional<CH4Data> _Record(std::istringstream& words) const {
    CH4Data data;
    std::vector<double> values;
    uint32_t diag = 0;
    const auto is = [&](const char* name) {
      const auto found = _columns.find(name);
      return found != _columns.end() && found->second == static_cast<int>(values.size());
    };
    for (std::string word; values.size() < _columns.size();) {
      if (!(words >> word)) return {};
      if (is("SECONDS"))
        values.push_back(data.seconds = NumberOf<int32_t>(word));
      else if (is("NANOSECONDS"))
        values.push_back(data.nanoseconds = NumberOf<int32_t>(word));
      else if (is("DIAG"))
        values.push_back(diag = NumberOf<uint32_t>(word));
      else
        values.push_back(NumberOf<double>(word));
    }
    size_t i = 0;
    for (const char* name : {"CH4D", "CH4", "TEMP", "PRESSURE", "RSSI", "DROPRATE", "AUX1", "AUX2", "AUX3", "AUX4"}) {
      const auto found = _columns.find(name);
      const bool there = found != _columns.end() && found->second < static_cast<int>(values.size());
      data.values[i++] = there ? values[static_cast<size_t>(found->second)] : -999.9;
    }
    const auto set = [&](const char* name) {
      const auto found = _bits.find(name);
      return found != _bits.end() && found->second < 32 && (diag >> found->second & 1) != 0;
    };
    if (set("BADTEMP") || set("MOTORSPINNING")) data.errorFlags = 32;
    for (const char* name : {"BLOCKTEMPUNREG", "LASTERTEMPUNREG", "NOSIGNAL", "NOTREADY", "REFUNLOCKED"})
      if (set(name)) data.errorFlags = 544;
    return data;
  }

  std::map<std::string, int> _columns, _bits;
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
  // As if nothing had been learned yet.
  for (const char* header : {"DATAH     \n", "DATADIAGH \n"}) both.Take(header);
  std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
  for (std::string line; std::getline(lines, line);) {
    both.Take(line + '\n');
    if (const size_t tab = line.rfind('\t'); tab != std::string::npos) {
      line.resize(tab + 1);
      AppendCheckSum(line);
      both.Take(line);
    }
  }
  return 0;
}
