#include "soil/soildevice.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <locale>
#include <optional>
#include <sstream>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "config/xml_parser.h"
#include "runtime/numbertext.h"

namespace {

enum Kind {
  kString,  // of all paths that aren't listed
  kFloat,
  kLong,
  kTime,
  kIgnored,
  // Of the whole line.
  kInfo,
  kMeasurement,
  kState,
  kInternalFiles,
  kExternalFiles,
  kData,
  kReport,
  kError
};

struct Row {
  std::string_view path;
  Kind kind;
};

constexpr Row kRows[] = {
    {"/SR/DATA/BENCHPRESSURE", kFloat},
    {"/SR/DATA/BENCHTEMP", kFloat},
    {"/SR/DATA/BOARDTEMP", kFloat},
    {"/SR/DATA/CHAMBERTEMP", kFloat},
    {"/SR/DATA/CO2", kFloat},
    {"/SR/DATA/CO2ABS", kFloat},
    {"/SR/DATA/COURSE", kFloat},
    {"/SR/DATA/CPRIME", kFloat},
    {"/SR/DATA/FLUX", kFloat},
    {"/SR/DATA/H2O", kFloat},
    {"/SR/DATA/H2OABS", kFloat},
    {"/SR/DATA/LATITUDE", kFloat},
    {"/SR/DATA/LONGITUDE", kFloat},
    {"/SR/DATA/RH", kFloat},
    {"/SR/DATA/SPEED", kFloat},
    {"/SR/DATA/STATUS", kFloat},
    {"/SR/DATA/T1", kFloat},
    {"/SR/DATA/T2", kFloat},
    {"/SR/DATA/T3", kFloat},
    {"/SR/DATA/T4", kFloat},
    {"/SR/DATA/V1", kFloat},
    {"/SR/DATA/V2", kFloat},
    {"/SR/DATA/V3", kFloat},
    {"/SR/DATA/V4", kFloat},
    {"/SR/DATA/VIN", kFloat},

    {"/SR/DATA/RAWCO2", kLong},
    {"/SR/DATA/RAWCO2REF", kLong},
    {"/SR/DATA/RAWH2O", kLong},
    {"/SR/DATA/RAWH2OREF", kLong},
    {"/SR/STATE/CHAMBER/PORT", kLong},
    {"/SR/STATE/CUROB", kLong},
    {"/SR/STATE/GAS", kLong},
    {"/SR/STATE/NEXTOB", kLong},
    {"/SR/STATE/OBCOMPLETE", kLong},
    {"/SR/STATE/PURGING", kLong},
    {"/SR/STATE/TOTALOB", kLong},
    {"/SR/STATE/V2", kLong},
    {"/SR/STATE/V3", kLong},
    {"/SR/STATE/V4", kLong},

    {"/SR/DATA/TIME", kTime},
    {"/CRC", kIgnored},

    {"/SR/INFO", kInfo},
    {"/SR/MEASUREMENT", kMeasurement},
    {"/SR/STATE", kState},
    {"/SR/LIST", kInternalFiles},
    {"/SR/CFLIST", kExternalFiles},
    {"/SR/DATA", kData},
    {"/SR/REPORT", kReport},
    {"/SR/ERROR", kError},
};

constexpr std::size_t kRowCount = std::size(kRows);
// Within each kind as the maps of a record are.
static_assert(std::is_sorted(std::begin(kRows), std::end(kRows), [](const Row& one, const Row& other) {
  return one.kind != other.kind ? one.kind < other.kind : one.path < other.path;
}));
constexpr Row kUnlisted = {"", kString};

// The program's one map of paths.
const std::unordered_map<std::string_view, const Row*> _types = [] {
  std::unordered_map<std::string_view, const Row*> types;
  for (const Row& row : kRows) types.emplace(row.path, &row);
  return types;
}();

const Row& RowOf(const std::string& path) {
  const auto found = _types.find(path);
  return found == _types.end() ? kUnlisted : *found->second;
}

// The open elements. Their names joined, each with a "/" before it, is all that is ever looked at.
class _XPath {
 public:
  void Push(std::string_view name) {
    _starts.push_back(_text.size());
    _text.append(1, '/').append(name);
  }
  // An end tag of another name ends nothing.
  void Pop(std::string_view name) {
    if (_starts.empty() || std::string_view(_text).substr(_starts.back() + 1) != name) return;
    _text.resize(_starts.back());
    _starts.pop_back();
  }
  const std::string& Text() const { return _text; }

 private:
  std::string _text;
  std::vector<std::size_t> _starts;
};

// Numbers as a formatted stream of the classic locale takes them: white space in front, and whatever behind.
std::string_view WithoutBlanks(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t\n\v\f\r");
  return start == text.npos ? std::string_view() : text.substr(start);
}

std::optional<int32_t> ReadInteger(std::string_view text) {
  text = WithoutBlanks(text);
  bool failed = false;
  const int32_t value = TakeInteger(text, failed);
  return failed ? std::nullopt : std::optional(value);
}

std::optional<float> ReadFloat(std::string_view text) {
  text = WithoutBlanks(text);
  bool failed = false;
  const float value = TakeFloat(text, failed);
  return failed ? std::nullopt : std::optional(value);
}

// The numbers of one line, by their rows; of two for one path the last counts. The maps are brought up to date in one
// walk: no field looks for its place, and one that was in the line before allocates nothing.
class Numbers {
 public:
  void Read(const Row& row, std::string_view text) {
    Value& value = _values[&row - kRows];
    if (row.kind == kFloat) {
      if (const auto real = ReadFloat(text)) value = {true, *real, 0};
    } else {
      if (const auto integer = ReadInteger(text)) value = {true, 0, *integer};
    }
  }
  void Update(SoilData& data) const {
    _Update(kFloat, &Value::real, data.floats);
    _Update(kLong, &Value::integer, data.longs);
  }

 private:
  struct Value {
    bool present;
    float real;
    int32_t integer;
  };
  // Whatever the map holds.
  template <class Number, class Map>
  void _Update(Kind kind, Number Value::*number, Map& map) const {
    auto at = map.begin();
    for (std::size_t row = 0; row < kRowCount; ++row) {
      if (kRows[row].kind != kind || !_values[row].present) continue;
      const std::string_view path = kRows[row].path;
      while (at != map.end() && at->first < path) at = map.erase(at);
      if (at == map.end() || at->first != path) at = map.emplace_hint(at, path, 0);
      (at++)->second = _values[row].*number;
    }
    map.erase(at, map.end());
  }

  Value _values[kRowCount] = {};
};

// A date and a time by position, without separators: YYYYMMDDHHMMSS.
int _ReadIntFromString(std::string_view text, std::size_t position, std::size_t length) {
  return text.size() >= position + length ? ReadInteger(text.substr(position, length)).value_or(0) : 0;
}

time_t TimeOf(std::string_view text) {
  tm when{};
  when.tm_year = _ReadIntFromString(text, 0, 4) - 1900;
  when.tm_mon = _ReadIntFromString(text, 4, 2) - 1;
  when.tm_mday = _ReadIntFromString(text, 6, 2);
  when.tm_hour = _ReadIntFromString(text, 8, 2);
  when.tm_min = _ReadIntFromString(text, 10, 2);
  when.tm_sec = _ReadIntFromString(text, 12, 2);
  when.tm_isdst = -1;
  return mktime(&when);
}

std::string StringOf(const SoilData& data, const char* path) {
  const auto found = data.strings.find(path);
  return found == data.strings.end() ? std::string() : found->second;
}

// Entries of a name, "=", a size, and one character that ends the entry, whichever it is.
std::vector<SoilDevice::FileInfo> FilesOf(const std::string& text) {
  std::vector<SoilDevice::FileInfo> files;
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  for (SoilDevice::FileInfo file; std::getline(in, file.name, '=') && in >> file.size; in.get()) files.push_back(file);
  return files;
}

struct Escape {
  std::string_view code, text;
};
constexpr std::string_view kEscapeStart = "%0x";
constexpr Escape kEscapes[] = {{"2F", "/"}, {"3C", "<"}, {"3E", ">"}, {"9", "\t"}, {"A", "\r\n"}};

// What isn't listed stays as it is.
std::string Unescaped(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t start; (start = text.find(kEscapeStart)) != text.npos;) {
    result.append(text.substr(0, start));
    text.remove_prefix(start);
    const std::string_view code = text.substr(kEscapeStart.size());
    std::size_t taken = 1;
    std::string_view replacement = "%";
    for (const Escape& escape : kEscapes)
      if (code.substr(0, escape.code.size()) == escape.code) {
        taken = kEscapeStart.size() + escape.code.size();
        replacement = escape.text;
      }
    result.append(replacement);
    text.remove_prefix(taken);
  }
  return result.append(text);
}

template <class Map>
void Print(std::ostream& out, const Map& fields) {
  for (const auto& [path, value] : fields) out << ' ' << path << '=' << value;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const SoilData& data) {
  out << "TIME=" << data.time;
  Print(out, data.floats);
  Print(out, data.longs);
  Print(out, data.strings);
  return out;
}

void SoilDevice::Listener::GotSoilOpened() {}
void SoilDevice::Listener::GotSoilConnected(std::string) {}
void SoilDevice::Listener::GotSoilClosed() {}
void SoilDevice::Listener::GotSoilData(SoilData&) {}
void SoilDevice::Listener::GotSoilInfo(SoilData&) {}
void SoilDevice::Listener::GotSoilStatus(SoilData&) {}
void SoilDevice::Listener::GotSoilMeasurement(SoilData&) {}
void SoilDevice::Listener::GotSoilIntFileList(const std::vector<FileInfo>&) {}
void SoilDevice::Listener::GotSoilExtFileList(const std::vector<FileInfo>&) {}
void SoilDevice::Listener::GotSoilReport(std::string) {}
void SoilDevice::Listener::GotSoilError(std::string) {}

SoilDevice::SoilDevice(bool verbose) : _head(this, kPort, verbose), _verbose(verbose) {}

SoilDevice::Listener* SoilDevice::RegisterListener(Listener* listener) {
  return std::exchange(_listener, listener);
}

void SoilDevice::HeadOpened() {
  if (_listener != nullptr) _listener->GotSoilOpened();
}

void SoilDevice::HeadClosed() {
  if (_listener != nullptr) _listener->GotSoilClosed();
}

void SoilDevice::HeadConnected(std::string connectedTo) {
  if (_listener != nullptr) _listener->GotSoilConnected(std::move(connectedTo));
}

void SoilDevice::HeadGotLine(std::string line) {
  if (_verbose) std::cout << "Soil Rx: " << line << '\n';  // a blank line follows, as the line has its own end
  if (_listener == nullptr || line.empty() || line[0] != '<') return;

  // That of the last line, unless this call comes out of its callback. It outlives the device if need be.
  const std::shared_ptr<SoilData> data = _data.use_count() == 1 ? _data : std::make_shared<SoilData>();
  _Dispatch(_ReadLine(std::move(line), *data), *data);
}

int SoilDevice::_ReadLine(std::string line, SoilData& data) {
  std::istringstream in(std::move(line));
  XMLParser parser(in);
  _XPath path;
  Numbers numbers;
  data.time = _lastTime;
  data.strings.clear();
  Kind line_kind = kString;  // of the outermost element that is listed
  for (;;) {
    const auto token = parser.GetNextToken();
    const std::string_view text = parser.GetToken().string();
    if (token == XMLParser::START_ELEMENT) {
      path.Push(text);
      if (line_kind == kString) line_kind = RowOf(path.Text()).kind;
    } else if (token == XMLParser::END_ELEMENT) {
      path.Pop(text);
    } else if (token == XMLParser::END_DOC || token == XMLParser::ERROR) {
      numbers.Update(data);
      return line_kind;
    } else if (token == XMLParser::STRING) {
      const Row& row = RowOf(path.Text());
      if (row.kind == kFloat || row.kind == kLong)
        numbers.Read(row, text);
      else if (row.kind == kTime)
        data.time = _lastTime = TimeOf(text);
      else if (row.kind != kIgnored)
        data.strings[path.Text()] = text;
    }
  }
}

void SoilDevice::_Dispatch(int kind, SoilData& data) {
  switch (kind) {
    case kInfo:
      return _listener->GotSoilInfo(data);
    case kMeasurement:
      return _listener->GotSoilMeasurement(data);
    case kState:
      return _listener->GotSoilStatus(data);
    case kInternalFiles:
      return _listener->GotSoilIntFileList(FilesOf(StringOf(data, "/SR/LIST")));
    case kExternalFiles:
      return _listener->GotSoilExtFileList(FilesOf(StringOf(data, "/SR/CFLIST")));
    case kData:
      return _listener->GotSoilData(data);
    case kReport:
      return _listener->GotSoilReport(Unescaped(StringOf(data, "/SR/REPORT/OB")));
    case kError:
      return _listener->GotSoilError(StringOf(data, "/SR/ERROR"));
    default:
      return;
  }
}
