#include "emulators/campbelllogger.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "runtime/localtime.h"

namespace {

constexpr size_t kChunk = 100;
constexpr const char* kJSON = "application/json";
constexpr const char* kHTML = "text/html; charset=utf-8";

// Local time as if it were that of Greenwich.
time_t LocalClock() {
  const time_t now = time(nullptr);
  return now + LocalTime(now).tm_gmtoff;
}

// Up to the next "&".
std::string Parameter(const std::string& url, const std::string& name) {
  const size_t found = url.find(name + "=");
  if (found == std::string::npos) return {};
  const size_t start = found + name.size() + 1;
  return url.substr(start, url.find('&', start) - start);
}

std::string Quoted(const std::string& text) {
  return '"' + text + '"';
}

std::string InChunks(const std::string& body) {
  std::string chunks;
  for (size_t at = 0; at < body.size(); at += kChunk) {
    const size_t size = std::min(kChunk, body.size() - at);
    char head[16];
    std::snprintf(head, sizeof head, "%zx\r\n", size);
    chunks.append(head).append(body, at, size).append("\r\n");
  }
  return chunks + "0\r\n\r\n";
}

}  // namespace

CampbellLogger::CampbellLogger(std::string table, int table_seconds)
    : _table(std::move(table)), _period(table_seconds), _place(Socket::FamilyIPv4, Socket::TypeStream, 0) {
  SocketAddress address(SocketAddress::FamilyIPv4);
  _place.Bind(address);
  _place.GetSockName(&address);
  _port = address.Port();
  _fields = {{"BattV", "xsd:float", "12.61"},      {"AirTC", "xsd:float", ""},           {"RH", "xsd:float", "\"NAN\""},
             {"Station", "xsd:string", "\"bog\""}, {"DoorOpen", "xsd:boolean", "false"}, {"Rain_mm", "xsd:float", "0"}};
  SetClockError(0);
  Listen();
}

CampbellLogger::~CampbellLogger() noexcept {
  _server.reset();
}

void CampbellLogger::Listen() {
  if (_server != nullptr) return;
  _server = std::make_unique<SocketServer>(HTTPParser::TypeRequest, Socket::FamilyIPv4);
  _server->RegisterListener(*this);
  _server->Listen(_port);
}

void CampbellLogger::Refuse() {
  _server.reset();
}

void CampbellLogger::Forget() {
  _requests.clear();
  _received.clear();
  _rows.clear();
  _live = 0;
}

int CampbellLogger::ClockError() const {
  return static_cast<int>(_Clock() - LocalClock());
}

void CampbellLogger::SetClockError(int seconds) {
  _ahead = LocalClock() + seconds - time(nullptr);
}

void CampbellLogger::Misbehave(Trouble trouble, int replies) {
  _trouble = trouble;
  _troubled = replies;
}

void CampbellLogger::CutNext(size_t bytes) {
  _cut = bytes;
}

void CampbellLogger::ClientOpened(SocketClient&) {
  ++_connections;
  ++_open;
  _silent = false;
}

void CampbellLogger::ClientClosed(SocketClient& client) {
  --_open;
  if (&client == _ending) _ending = nullptr;
}

// What it still asks for is heard, but not answered.
void CampbellLogger::_End(SocketClient& client) {
  _ending = &client;
  client.CloseWhenDone();
}

void CampbellLogger::GotHTTPRequest(SocketClient& client, std::string url, std::map<std::string, std::string>&,
                                    std::string) {
  _requests.push_back(url);
  if (&client == _ending) return;
  const Trouble trouble = _troubled > 0 ? _trouble : kNone;
  if (_troubled > 0) --_troubled;
  const std::string page = "<html><body>" + std::to_string(_requests.size()) + "</body></html>";
  switch (trouble) {
    case kSilence:
      _silent = true;
      return;
    case kNotFound:
      _Reply(client, "404 Not Found", ::kHTML, page);
      return;
    case kServerError:
      _Reply(client, "500 Internal Server Error", ::kHTML, page);
      return;
    case kHTML:
      _Reply(client, "200 OK", ::kHTML, page);
      return;
    case kNoJSON:
      _Reply(client, "200 OK", kJSON, "{\"head\": {\"fields\": [");
      return;
    case kNoHTTP:
      client.Write("SSH-2.0-logger\r\n");
      return;
    case kHalf:
      CutNext(50 + _requests.size() % 200);
      break;
    default:
      break;
  }
  std::string kind = kJSON;
  const size_t rows = _rows.size();
  const int live = _live;
  const std::string body = _Answer(url, kind);
  if (!_Reply(client, kind.empty() ? "404 Not Found" : "200 OK", kind.empty() ? ::kHTML : kind, body)) {
    _rows.resize(rows);
    _live = live;
  }
  if (trouble == kLastAnswer) _End(client);
}

// False: its end doesn't come, or not but with that of the connection.
bool CampbellLogger::_Reply(SocketClient& client, const std::string& status, const std::string& kind,
                            const std::string& body) {
  std::string reply = "HTTP/1.1 " + status + "\r\nServer: logger\r\ncontent-type: " + kind + "\r\n";
  if (_framing == kByLength)
    reply += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  else if (_framing == kInChunks)
    reply += "Transfer-Encoding: chunked\r\n\r\n" + InChunks(body);
  else
    reply += "Connection: close\r\n\r\n" + body;
  const bool ends = _cut < reply.size() || _framing == kByTheEnd;
  client.Write(reply.substr(0, std::exchange(_cut, SIZE_MAX)));
  if (ends) _End(client);
  return !ends;
}

// Without a `kind` there is no such thing.
std::string CampbellLogger::_Answer(const std::string& url, std::string& kind) {
  const std::string command = Parameter(url, "command");
  if (command == "ClockSet") {
    tm parts{};
    strptime(Parameter(url, "time").c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    _ahead = timegm(&parts) - time(nullptr);
    return "{\"outcome\": 1,\"time\": \"" + _TimeText(_Clock()) + "\",\"description\": \"The clock was set\"}";
  }
  if (command == "setvalueex") {
    const std::string place = Parameter(url, "uri");
    _Set(place.substr(place.find('.') + 1), Parameter(url, "value"));
    kind = ::kHTML;
    return "<html><head><title>SetValueExResponse</title></head><body>0</body></html>";
  }
  std::string body = command == "DataQuery" ? _Query(url) : "";
  if (body.empty()) kind.clear();
  return body;
}

std::string CampbellLogger::_Query(const std::string& url) {
  const std::string table = Parameter(url, "uri");
  if (table == "dl:Public") {
    ++_live;
    std::vector<Field> fields = _fields;
    for (const auto& [name, value] : _values) fields.push_back({name, "xsd:float", value});
    return _RowOf("Public", _Clock(), fields);
  }
  if (table != "dl:" + _table) return {};
  const time_t moment = _Clock() / _period * _period;
  std::string row = _RowOf(_table, moment, _fields);
  _rows.push_back({_TimeText(moment), row});
  return row;
}

std::string CampbellLogger::_RowOf(const std::string& table, time_t moment, const std::vector<Field>& fields) const {
  std::string heads, values;
  for (const Field& field : fields) {
    const char* const comma = heads.empty() ? "" : ",";
    heads += comma + ("{\"name\": " + Quoted(field.name)) + ",\"type\": " + Quoted(field.type) +
             ",\"units\": \"\",\"process\": \"Smp\",\"settable\": false}";
    char number[32];
    std::snprintf(number, sizeof number, "%.4f",
                  static_cast<double>(moment % 3'600) / 100 + static_cast<double>(field.name.size()));
    values += comma + (field.value.empty() ? number : field.value);
  }
  return "{\"head\": {\"transaction\": 0,\"signature\": 37115,\"environment\": {\"station_name\": "
         "\"bog\",\"table_name\": " +
         Quoted(table) + ",\"model\": \"logger\",\"serial_no\": \"1234\"},\"fields\": [" + heads +
         "]},\"data\": [{\"no\": " + std::to_string(moment / _period) + ",\"time\": " + Quoted(_TimeText(moment)) +
         ",\"vals\": [" + values + "]}],\"more\": false}";
}

std::string CampbellLogger::_TimeText(time_t moment) const {
  tm parts{};
  gmtime_r(&moment, &parts);
  char text[64];
  std::string time(text, strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts));
  return _fractions ? time + '.' + std::to_string(parts.tm_sec % 10) : time;
}

void CampbellLogger::_Set(const std::string& name, const std::string& value) {
  _values[name] = value;
}
