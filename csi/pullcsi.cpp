#include "csi/pullcsi.h"

#include <jsoncpp/json/reader.h>
#include <jsoncpp/json/writer.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "json/statefile.h"
#include "runtime/datachecksum.h"
#include "runtime/filesystem.h"
#include "runtime/localtime.h"
#include "runtime/numbertext.h"
#include "runtime/str_util.h"

namespace {

// Milliseconds.
constexpr int kNever = -1;
constexpr int kFirstTick = 1'000;
constexpr int kTick = 5'000;

constexpr int kPort = 80;
constexpr size_t kMostRequests = 1'000;
constexpr size_t kMostUnfinished = size_t{4} << 20;

// What is asked of the logger: each is the text before a value and the text behind it.
struct Request {
  std::string_view before;
  std::string_view behind;
  std::string With(std::string_view value) const { return std::string(before).append(value).append(behind); }
};
constexpr Request kSetClock = {"/?command=ClockSet&format=json&time=", ""};
constexpr Request kSetUTCOffset = {"/?command=setvalueex&uri=dl:public.UTCOffset&value=", "&format=html"};
constexpr Request kSetElevation = {"/?command=setvalueex&uri=dl:public.Elevation&value=", "&format=html"};
constexpr Request kSetLatitude = {"/?command=setvalueex&uri=dl:public.Latitude&value=", "&format=html"};
constexpr Request kSetLongitude = {"/?command=setvalueex&uri=dl:public.Longitude&value=", "&format=html"};
constexpr Request kQueryTable = {"/?command=DataQuery&uri=dl:", "&format=json&mode=most-recent&p1=1"};
constexpr std::string_view kQueryPublic = "/?command=DataQuery&uri=dl:Public&format=json&mode=most-recent&p1=1";

// How a row may lie from the present moment, in seconds.
constexpr int64_t kOldest = -31'557'599;
constexpr int64_t kNewest = 86'399;

enum FieldType : int { kSkipped = 0, kFloat = 1, kBoolean = 2 };

// As "%f" of printf(3) in the classic locale.
std::string Fixed(double value) {
  char text[std::numeric_limits<double>::max_exponent10 + 10];
  return {text, std::to_chars(text, std::end(text), value, std::chars_format::fixed, 6).ptr};
}

// --- JSON of any shape ---

// Null where there is none.
const Json::Value& Member(const Json::Value& value, const char* name) {
  return value.isObject() ? value[name] : Json::Value::nullSingleton();
}

// Whether a member can be put in.
bool TakesMembers(const Json::Value& value) {
  return value.isObject() || value.isNull();
}

std::string TextOf(const Json::Value& value) {
  return value.isConvertibleTo(Json::stringValue) ? value.asString() : std::string();
}

// strtod(3) of its text, as the classic locale has it. Numbers are what their text is; a truth is no number there.
double FloatOf(const Json::Value& value) {
  static const locale_t classic = newlocale(LC_ALL_MASK, "C", nullptr);
  if (value.isString()) return strtod_l(value.asCString(), nullptr, classic);
  return value.isNumeric() ? value.asDouble() : 0;
}

bool BooleanOf(const Json::Value& value) {
  return value.isConvertibleTo(Json::booleanValue) && value.asBool();
}

// On one line, with its end.
std::string Written(const Json::Value& document) {
  Json::StreamWriterBuilder format;
  format["indentation"] = "";
  return Json::writeString(format, document) + '\n';
}

std::unique_ptr<Json::CharReader> NewReader() {
  Json::CharReaderBuilder format;
  format["collectComments"] = false;
  return std::unique_ptr<Json::CharReader>(format.newCharReader());
}

// --- times ---

// Whole numbers as a formatted stream takes them, white space before each skipped, with one character of any kind
// between two: 2024-05-01T12:30:00.5 has seven. What follows the last one counts for nothing.
template <size_t count>
bool ReadNumbers(std::string_view text, std::array<int32_t, count>& numbers) {
  bool failed = false;
  for (size_t i = 0; i < count && !failed; ++i) {
    if (i > 0) text.remove_prefix(std::min<size_t>(text.size(), 1));
    SkipSpace(text);
    numbers[i] = TakeInteger(text, failed);
  }
  return !failed;
}

// Year, month, day, hour, minute and second of this host's zone.
time_t MomentOf(const int32_t* numbers) {
  constexpr int64_t kLeast = std::numeric_limits<int>::min();
  tm local{};
  local.tm_year = static_cast<int>(std::max(kLeast, int64_t{numbers[0]} - 1900));
  local.tm_mon = static_cast<int>(std::max(kLeast, int64_t{numbers[1]} - 1));
  local.tm_mday = numbers[2];
  local.tm_hour = numbers[3];
  local.tm_min = numbers[4];
  local.tm_sec = numbers[5];
  local.tm_isdst = -1;
  return mktime(&local);
}

bool _IsTimestampValid(const std::string& text) {
  std::array<int32_t, 6> numbers;
  if (!ReadNumbers(text, numbers)) return false;
  const int64_t ahead = int64_t{MomentOf(numbers.data())} - time(nullptr);
  return ahead >= kOldest && ahead <= kNewest;
}

}  // namespace

void PullCSI::Listener::GotCSIData(std::string) {}

PullCSI::PullCSI(LinuxClock& clock, std::string upload_dir, std::string conf_dir, int table_seconds, bool verbose)
    : PullCSI(clock, std::move(upload_dir), std::move(conf_dir), table_seconds, verbose, kPort) {}

PullCSI::PullCSI(LinuxClock& clock, std::string upload_dir, std::string conf_dir, int table_seconds, bool verbose,
                 int port)
    : PollTimer(kNever, true),
      _clock(clock),
      _upload_dir(std::move(upload_dir)),
      _conf_dir(std::move(conf_dir)),
      _head(this, port, false),
      _table_ticks(table_seconds / 5),
      _verbose(verbose),
      _reader(NewReader()) {
  _LoadConf();
}

PullCSI::~PullCSI() noexcept = default;

PullCSI::Listener* PullCSI::RegisterListener(Listener* listener) {
  return std::exchange(_listener, listener);
}

void PullCSI::SetCSIHostname(std::string hostname) {
  _hostname = std::move(hostname);
  if (!_hostname.empty()) {
    SetTimeout(kFirstTick);
  } else {
    SetTimeout(kNever);
    _head.Disconnect();
  }
}

// --- what is asked, and when ---

void PullCSI::HandleTimeout() {
  _Sync();
  if (++_tick_count >= _table_ticks) {
    _Append(kSetElevation.With(Fixed(_elevation)));
    _Append(kSetLatitude.With(Fixed(_latitude)));
    _Append(kSetLongitude.With(Fixed(_longitude)));
    _Append(kQueryTable.With(_table));
    _tick_count = 0;
  }
  if (_requests.empty()) _Append(std::string(kQueryPublic));
  _head.Connect(_hostname);
  _http.Reset();
  AddTimeout(kTick);
}

void PullCSI::_Append(std::string path) {
  if (_requests.size() < kMostRequests) _requests.push_back(std::move(path));
}

// A clock that waits to be set is set to the time of the step that gets through.
void PullCSI::_Sync() {
  const tm local = LocalTime(time(nullptr));
  char moment[64];
  strftime(moment, sizeof moment, "%Y-%m-%dT%H:%M:%S.000", &local);
  const std::string set_clock = kSetClock.With(moment);
  for (std::string& path : _requests)
    if (path.starts_with(kSetClock.before)) path = set_clock;

  const auto offset = static_cast<int32_t>(local.tm_gmtoff / 60);
  const bool first = _sync_day == 0;
  if (!first && !_force_sync && offset == _sync_offset && local.tm_mday == _sync_day) return;
  // Without room for both it is for a later step.
  if (_requests.size() + 2 > kMostRequests) return;
  _clock.RefreshZone();
  _sync_offset = offset;
  _sync_day = local.tm_mday;
  if (first && !_force_sync) return;
  _force_sync = false;
  _Append(set_clock);
  _Append(kSetUTCOffset.With(std::to_string(offset)));
}

// The parser too begins anew: the link connects again by itself after a reply that was cut, or that threw.
void PullCSI::HeadConnected(std::string) {
  _http.Reset();
  _unfinished = 0;
  _SendNextRequest();
}

// Without a connection, as after a callback that has ended it, the queue waits for the next one.
void PullCSI::_SendNextRequest() {
  if (_requests.empty()) {
    _head.Disconnect();
    return;
  }
  if (!_head.IsConnected()) return;
  _head.Send("GET " + _requests.front() + " HTTP/1.1\r\nHost: " + _hostname + "\r\nUser-Agent: Heathlink\r\n\r\n");
  _requests.pop_front();
}

// --- what is answered ---

void PullCSI::HeadGotRaw(std::string data) {
  _unfinished += data.size();
  if (_unfinished > kMostUnfinished) throw std::runtime_error("PullCSI: reply is too long");
  _http.Execute(data);
}

void PullCSI::HTTPGotResponse(std::map<std::string, std::string>& headers, std::string body) {
  _unfinished = 0;
  bool json = false;
  for (const auto& [name, value] : headers) {
    if (CaseInsensitiveStringFind(name, "Content-Type", 0) != kCaseInsensitiveNotFound &&
        CaseInsensitiveStringFind(value, "application/json", 0) != kCaseInsensitiveNotFound)
      json = true;
    if (_verbose) std::cout << name << ": " << value << '\n';
  }
  if (_verbose) std::cout << std::endl;
  if (json) _HandleJSONResponse(body);
  _SendNextRequest();
}

void PullCSI::_HandleJSONResponse(const std::string& body) {
  // As the stream operator reads it, without a stream's copies.
  Json::Value root;
  std::string errors;
  if (!_reader->parse(body.data(), body.data() + body.size(), &root, &errors)) Json::throwRuntimeError(errors);
  const Json::Value& head = Member(root, "head");
  if (!TakesMembers(root) || !TakesMembers(head) || !TakesMembers(Member(head, "environment"))) return;

  Json::Value& environment = root["head"]["environment"];
  const std::string table = TextOf(Member(environment, "table_name"));
  const Json::Value& data = Member(root, "data");
  const std::string timestamp = data.isArray() ? TextOf(Member(data[0], "time")) : std::string();
  // The stored file tells the zone that the logger's times are in.
  environment["timezone"] = _clock.CurrentZone();
  if (_verbose) std::cout << "table=" << table << " timestamp=" << timestamp << " json=" << Written(root) << std::endl;

  if (CaseInsensitiveStringCompare(table, "Public") == 0) {
    _HandleLiveDataJSON(root, body);
    return;
  }
  if (CaseInsensitiveStringCompare(table, _table) != 0) return;
  if (!_IsTimestampValid(timestamp)) {
    _force_sync = true;
    return;
  }
  if (_IsTimestampValid(_last_timestamp) && timestamp <= _last_timestamp) return;
  _StoreRow(timestamp, root);
  _last_timestamp = timestamp;
  _SaveConf();
}

// A row that can't be stored is lost without a word; that is meant. It has to be on the disk before its time is
// remembered, or a power cut would lose it.
void PullCSI::_StoreRow(const std::string& timestamp, const Json::Value& root) const {
  const std::string path = _upload_dir + "/ws-" + StripCharacter(timestamp, ':') + ".json";
  std::ofstream file(path, std::ios::trunc);
  if (!file) return;
  file << Written(root);
  file.close();
  try {
    SyncToDisk(path);
    SyncToDisk(_upload_dir);
  } catch (const std::exception&) {
  }
}

// The same bytes are the same fields, which is told sooner than by looking at each.
bool PullCSI::_FieldsDiffer(const Json::Value& fields, const std::string& body) {
  const auto start = static_cast<size_t>(fields.getOffsetStart());
  const auto size = static_cast<size_t>(fields.getOffsetLimit()) - start;
  // A body with a byte order mark is counted from behind it.
  const bool is_text = fields.isArray() && body.front() == '{';
  if (is_text && body.compare(start, size, _fields_text) == 0) return false;
  _fields_text = is_text ? body.substr(start, size) : std::string();
  return fields != _fields;
}

void PullCSI::_HandleLiveDataJSON(Json::Value& root, const std::string& body) {
  if (_FieldsDiffer(Member(root["head"], "fields"), body)) _TakeFields(root["head"]["fields"]);

  std::string line = "DATALOGGER\t";
  const Json::Value& row =
      Member(root, "data").isArray() ? std::as_const(root)["data"][0] : Json::Value::nullSingleton();
  std::array<int32_t, 7> numbers;
  const bool timed = ReadNumbers(TextOf(Member(row, "time")), numbers);
  AppendInteger(line, timed ? MomentOf(numbers.data()) : 0);
  line += '\t';
  // The fraction is taken for milliseconds, so .5 are 5 of them; that is meant.
  AppendInteger(line, timed ? static_cast<int32_t>(int64_t{numbers[6]} * 1'000'000) : 0);
  line += '\t';

  const Json::Value& values = Member(row, "vals");
  auto type = _field_types.begin();
  for (auto value = values.begin(); values.isArray() && value != values.end() && type != _field_types.end();
       ++value, ++type) {
    if (*type == kFloat) {
      const double number = FloatOf(*value);
      if (std::isnan(number) && std::signbit(number)) line += '-';
      AppendDouble(line, number);
      line += '\t';
    } else if (*type == kBoolean) {
      line += BooleanOf(*value) ? "1\t" : "0\t";
    }
  }
  AppendInteger(line, CheckSum(line), 3);
  line += '\n';
  if (_listener != nullptr) _listener->GotCSIData(std::move(line));
}

void PullCSI::_TakeFields(Json::Value& fields) {
  _fields.swap(fields);
  _field_types.clear();
  _datah = "DATALOGGERH\tSECONDS\tNANOSECONDS\t";
  for (auto field = _fields.begin(); _fields.isArray() && field != _fields.end(); ++field) {
    const std::string type = TextOf(Member(*field, "type"));
    const bool is_float = type.find("float") != std::string::npos;
    const bool is_boolean = type.find("boolean") != std::string::npos;
    _field_types.push_back(is_float ? kFloat : is_boolean ? kBoolean : kSkipped);
    if (is_float || is_boolean) _datah.append(TextOf(Member(*field, "name"))) += '\t';
  }
  _datah += "CHK\n";
  if (_listener != nullptr) _listener->GotCSIHeader(_datah);
}

// --- the file that remembers ---

void PullCSI::_LoadConf() {
  _last_timestamp = TextOf(ReadStateFile(_ConfPath())["last_timestamp"]);
}

void PullCSI::_SaveConf() const {
  try {
    Json::Value conf(Json::objectValue);
    conf["last_timestamp"] = _last_timestamp;
    WriteStateFile(_ConfPath(), conf);
  } catch (const std::exception&) {
    std::cout << "PullCSI: Unable to write conf file" << std::endl;
  }
}
