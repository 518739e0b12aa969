#include "net/httpparser.h"

#include <http_parser.h>

#include <exception>
#include <utility>

class HTTPParser::HTTPParserImpl {
 public:
  HTTPParserImpl(Listener* listener, int type);

  size_t Execute(const char* data, size_t size);
  void Reset();
  bool Upgrade() const { return _parser.upgrade != 0; }

 private:
  using Bytes = void (HTTPParserImpl::*)(const char* at, size_t size);
  using Mark = void (HTTPParserImpl::*)();

  // What the library calls. Nothing may be thrown through its frames, so the first exception is kept; parsing goes on,
  // or the next message would be joined to this one.
  template <Bytes method>
  static int OnBytes(http_parser* parser, const char* at, size_t size) noexcept {
    return Guard(parser, [=](HTTPParserImpl& self) { (self.*method)(at, size); });
  }
  template <Mark method>
  static int OnMark(http_parser* parser) noexcept {
    return Guard(parser, [](HTTPParserImpl& self) { (self.*method)(); });
  }
  template <typename Call>
  static int Guard(http_parser* parser, Call call) noexcept {
    auto& self = *static_cast<HTTPParserImpl*>(parser->data);
    try {
      call(self);
    } catch (...) {
      if (!self._thrown) self._thrown = std::current_exception();
    }
    return 0;
  }

  void MessageBegin();
  void GotURL(const char* at, size_t size) { _url.append(at, size); }
  void GotField(const char* at, size_t size);
  void GotValue(const char* at, size_t size);
  void GotBody(const char* at, size_t size) { _body.append(at, size); }
  void AddHeader();
  void MessageComplete();

  Listener* const _listener;
  const http_parser_type _type;
  http_parser_settings _settings;
  http_parser _parser;
  bool _lastWasValue = false;  // the last piece of a header field was one of its value
  std::string _url;
  std::map<std::string, std::string> _headers;
  std::string _body;
  std::string _field;  // of the header field under way, its name
  std::string _value;  // and its value
  std::exception_ptr _thrown;
};

HTTPParser::HTTPParserImpl::HTTPParserImpl(Listener* listener, int type)
    : _listener(listener),
      _type(type == TypeRequest    ? HTTP_REQUEST
            : type == TypeResponse ? HTTP_RESPONSE
                                   : HTTP_BOTH) {
  http_parser_settings_init(&_settings);
  _settings.on_message_begin = OnMark<&HTTPParserImpl::MessageBegin>;
  _settings.on_url = OnBytes<&HTTPParserImpl::GotURL>;
  _settings.on_header_field = OnBytes<&HTTPParserImpl::GotField>;
  _settings.on_header_value = OnBytes<&HTTPParserImpl::GotValue>;
  _settings.on_headers_complete = OnMark<&HTTPParserImpl::AddHeader>;
  _settings.on_body = OnBytes<&HTTPParserImpl::GotBody>;
  _settings.on_message_complete = OnMark<&HTTPParserImpl::MessageComplete>;
  Reset();
}

void HTTPParser::HTTPParserImpl::Reset() {
  http_parser_init(&_parser, _type);
  _parser.data = this;
}

size_t HTTPParser::HTTPParserImpl::Execute(const char* data, size_t size) {
  const size_t result = http_parser_execute(&_parser, &_settings, data, size);
  if (_thrown) std::rethrow_exception(std::exchange(_thrown, nullptr));
  // Of an end, which has no bytes, the library returns other than 0 when it came at the wrong time.
  if (result != size && !Upgrade()) {
    const http_errno error = HTTP_PARSER_ERRNO(&_parser);
    throw Error(std::string(http_errno_name(error)) + ": " + http_errno_description(error));
  }
  return result;
}

void HTTPParser::HTTPParserImpl::MessageBegin() {
  _lastWasValue = false;
  _url.clear();
  _headers.clear();
  _body.clear();
  _field.clear();
  _value.clear();
}

void HTTPParser::HTTPParserImpl::GotField(const char* at, size_t size) {
  if (_lastWasValue) AddHeader();
  _field.append(at, size);
  _lastWasValue = false;
}

void HTTPParser::HTTPParserImpl::GotValue(const char* at, size_t size) {
  _value.append(at, size);
  _lastWasValue = true;
}

// Called when the next field begins and when the header block is complete. Behind a chunked body there is no such
// block: the last field there is never added. That is meant.
void HTTPParser::HTTPParserImpl::AddHeader() {
  if (!_field.empty()) _headers.insert_or_assign(std::move(_field), std::move(_value));
  _field.clear();
  _value.clear();
}

void HTTPParser::HTTPParserImpl::MessageComplete() {
  if (_thrown) return;
  if (_parser.type == HTTP_REQUEST)
    _listener->HTTPGotRequest(std::move(_url), _headers, std::move(_body));
  else
    _listener->HTTPGotResponse(_headers, std::move(_body));
}

HTTPParser::HTTPParser(Listener* listener, int type) : _impl(std::make_unique<HTTPParserImpl>(listener, type)) {}

HTTPParser::~HTTPParser() = default;

size_t HTTPParser::Execute(const std::string& data) {
  return data.empty() ? 0 : _impl->Execute(data.data(), data.size());
}

void HTTPParser::EndOfData() {
  _impl->Execute(nullptr, 0);
}

bool HTTPParser::Upgrade() const {
  return _impl->Upgrade();
}

void HTTPParser::Reset() {
  _impl->Reset();
}

void HTTPParser::Listener::HTTPGotRequest(std::string, std::map<std::string, std::string>&, std::string) {}
void HTTPParser::Listener::HTTPGotResponse(std::map<std::string, std::string>&, std::string) {}
