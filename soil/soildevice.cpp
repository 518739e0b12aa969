#include "soil/soildevice.h"

#include <iostream>
#include <locale>
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

const std::unordered_map<std::string_view, Kind> kKinds = {
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

Kind KindOf(const std::string& path) {
  const auto found = kKinds.find(path);
  return found == kKinds.end() ? kString : found->second;
}

// The open elements. Their names joined, each with a "/" before it, is all that is ever looked at.
class Path {
 public:
  void Push(const std::string& name) {
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

bool ReadInteger(std::string_view text, int32_t& value) {
  text = WithoutBlanks(text);
  bool failed = false;
  value = TakeInteger(text, failed);
  return !failed;
}

bool ReadFloat(std::string_view text, float& value) {
  text = WithoutBlanks(text);
  bool failed = false;
  value = TakeFloat(text, failed);
  return !failed;
}

// A date and a time by position, without separators: YYYYMMDDHHMMSS.
int _ReadIntFromString(std::string_view text, std::size_t position, std::size_t length) {
  int32_t value = 0;
  return text.size() >= position + length && ReadInteger(text.substr(position, length), value) ? value : 0;
}

time_t TimeOf(const std::string& text) {
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

  std::istringstream in(std::move(line));
  XMLParser parser(in);
  SoilData data;
  data.time = _lastTime;
  Path path;
  Kind line_kind = kString;  // of the outermost element that is listed
  for (;;) {
    switch (parser.GetNextToken()) {
      case XMLParser::START_ELEMENT:
        path.Push(parser.GetTokenString());
        if (line_kind == kString) line_kind = KindOf(path.Text());
        continue;
      case XMLParser::END_ELEMENT:
        path.Pop(parser.GetTokenString());
        continue;
      case XMLParser::STRING:
        _ReadField(path.Text(), parser.GetTokenString(), data);
        continue;
      case XMLParser::END_DOC:
      case XMLParser::ERROR:
        break;
      default:
        continue;
    }
    break;
  }
  _Dispatch(line_kind, data);
}

void SoilDevice::_ReadField(const std::string& path, std::string text, SoilData& data) {
  float real = 0;
  int32_t integer = 0;
  switch (KindOf(path)) {
    case kFloat:
      if (ReadFloat(text, real)) data.floats[path] = real;
      break;
    case kLong:
      if (ReadInteger(text, integer)) data.longs[path] = integer;
      break;
    case kTime:
      data.time = _lastTime = TimeOf(text);
      break;
    case kIgnored:
      break;
    default:
      data.strings[path] = std::move(text);
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
