#include "analyser/ch4device.h"

#include <algorithm>
#include <iostream>
#include <utility>

#include "runtime/datachecksum.h"
#include "runtime/numbertext.h"
#include "runtime/str_util.h"

namespace {

constexpr const char* kOutputWanted =
    "<tarno><tn5500><output><rate>10</rate><waveforms>false</waveforms><status>false</status>"
    "<dataclock>false</dataclock></output></tn5500></tarno>\n";

constexpr size_t kShortestLine = 10;  // bytes
constexpr int kDiagBits = 32;

// In the order of CH4Data::values.
constexpr std::array<const char*, 10> kValueNames = {"CH4D",     "CH4",  "TEMP", "PRESSURE", "RSSI",
                                                     "DROPRATE", "AUX1", "AUX2", "AUX3",     "AUX4"};

// A failure has the bit of a warning and one of its own.
constexpr uint32_t kWarning = 0x20;
constexpr uint32_t kFailure = 0x220;

template <class Number>
Number NumberOf(std::string_view word, Number (*take)(std::string_view& text, bool& failed)) {
  bool failed = false;
  return take(word, failed);
}

template <class Map>
void PrintPairs(const Map& pairs) {
  for (const auto& [name, value] : pairs) std::cout << name << '=' << value << '\n';
}

}  // namespace

void CH4Device::Listener::GotCH4Data(const CH4Data&) {}

CH4Device::CH4Device(bool verbose) : _head(this, verbose), _verbose(verbose) {
  _ResetIndexes();
}

CH4Device::Listener* CH4Device::RegisterListener(Listener* listener) {
  return std::exchange(_listener, listener);
}

void CH4Device::HeadConnected(std::string) {
  _head.Send(kOutputWanted);
}

void CH4Device::HeadGotLine(std::string line) {
  if (_verbose) std::cout << "CH4: " << line << '\n';  // a blank line follows, as the line has its own end
  if (_listener == nullptr || line.size() < kShortestLine || line[0] != 'D') return;
  std::string_view words = line, key;
  NextWord(words, key);
  if (key == "DATA") {
    if (CheckSumAgrees(line)) _HandleDATA(words);
  } else if (key == "DATAH") {
    _LearnColumns(words);
  } else if (key == "DATADIAGH") {
    _LearnDiagnostics(words);
  }
}

void CH4Device::_ResetIndexes() {
  _secondsColumn = _nanosecondsColumn = _diagColumn = -1;
  _columnIndex.clear();
  _valueColumns.fill(-1);
}

// The heading of the sum, CHK, counts as a column; it is the last, so that a line's sum is a value, too.
void CH4Device::_LearnColumns(std::string_view names) {
  _ResetIndexes();
  int index = 0;
  for (std::string_view name; NextWord(names, name); ++index) _columnIndex.insert_or_assign(std::string(name), index);
  _secondsColumn = _Column("SECONDS");
  _nanosecondsColumn = _Column("NANOSECONDS");
  _diagColumn = _Column("DIAG");
  std::transform(kValueNames.begin(), kValueNames.end(), _valueColumns.begin(),
                 [this](const char* name) { return _Column(name); });
  if (_verbose) PrintPairs(_columnIndex);
}

int CH4Device::_Column(const char* name) const {
  const auto found = _columnIndex.find(name);
  return found == _columnIndex.end() ? -1 : found->second;
}

void CH4Device::_LearnDiagnostics(std::string_view names) {
  _diagMask.clear();
  int bit = 0;
  for (std::string_view name; NextWord(names, name); ++bit)
    _diagMask.insert_or_assign(std::string(name), bit < kDiagBits ? uint32_t{1} << bit : 0);
  _warningMask = _Masks({"BADTEMP", "MOTORSPINNING"});
  _failureMask = _Masks({"BLOCKTEMPUNREG", "LASTERTEMPUNREG", "NOSIGNAL", "NOTREADY", "REFUNLOCKED"});
  if (_verbose) PrintPairs(_diagMask);
}

uint32_t CH4Device::_Masks(std::initializer_list<const char*> names) const {
  uint32_t masks = 0;
  for (const char* name : names)
    if (const auto found = _diagMask.find(name); found != _diagMask.end()) masks |= found->second;
  return masks;
}

uint32_t CH4Device::_ErrorFlags() const {
  if ((_diagWord & _failureMask) != 0) return kFailure;
  return (_diagWord & _warningMask) != 0 ? kWarning : 0;
}

// Each different name counts as one column, so a header that repeats names leaves its last columns unread.
void CH4Device::_HandleDATA(std::string_view words) {
  CH4Data data;
  _lineValues.clear();
  _diagWord = 0;
  const int known = static_cast<int>(_columnIndex.size());
  for (int column = 0; column < known; ++column) {
    std::string_view word;
    if (!NextWord(words, word)) return;
    if (column == _secondsColumn)
      _lineValues.push_back(data.seconds = NumberOf(word, TakeInteger));
    else if (column == _nanosecondsColumn)
      _lineValues.push_back(data.nanoseconds = NumberOf(word, TakeInteger));
    else if (column == _diagColumn)
      _lineValues.push_back(_diagWord = NumberOf(word, TakeUnsigned));
    else
      _lineValues.push_back(NumberOf(word, TakeDouble));
  }
  if (_verbose) _PrintRecord();
  std::transform(_valueColumns.begin(), _valueColumns.end(), data.values.begin(), [&](int column) {
    return column >= 0 && column < known ? _lineValues[static_cast<size_t>(column)] : CH4Unavailable;
  });
  data.errorFlags = _ErrorFlags();
  _listener->GotCH4Data(data);
}

void CH4Device::_PrintRecord() const {
  std::cout << "CH4:";
  for (const auto& [name, column] : _columnIndex)
    if (static_cast<size_t>(column) < _lineValues.size()) std::cout << ' ' << name << '=' << _lineValues[column];
  for (const auto& [name, mask] : _diagMask) std::cout << ' ' << name << '=' << ((_diagWord & mask) != 0 ? 1 : 0);
  std::cout << '\n';
}
