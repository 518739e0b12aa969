// HTTP messages beside the bare http_parser library with callbacks that gather the same strings into the same map. The
// jobs take turns.
//   messages/s   of ours
//   own/bare     our time divided by the peer's

#include <benchmark/benchmark.h>
#include <http_parser.h>

#include <cstdlib>
#include <map>
#include <string>
#include <utility>

#include "bench/turns.h"
#include "net/httpparser.h"

namespace {

const std::string kRequest =
    "GET /?command=DataQuery&uri=dl:Public&format=json&mode=most-recent&p1=1 HTTP/1.1\r\nHost: 192.168.7.11\r\n"
    "User-Agent: Moorlog\r\nAccept: */*\r\n\r\n";
const std::string kResponse =
    "HTTP/1.1 200 OK\r\nServer: Logger\r\nDate: Fri, 01 Mar 2024 00:00:00 GMT\r\nContent-Type: application/json\r\n"
    "Cache-Control: no-cache\r\nContent-Length: 1500\r\n\r\n" +
    std::string(1500, 'j');
constexpr size_t kChunk = 4096;  // as a client reads

struct Gathered {
  std::string url;
  std::map<std::string, std::string> headers;
  std::string body;
  std::string field;
  std::string value;
  bool was_value = false;
  size_t messages = 0;
};

Gathered& Of(http_parser* parser) {
  return *static_cast<Gathered*>(parser->data);
}

void Add(Gathered& its) {
  if (!its.field.empty()) its.headers.insert_or_assign(std::move(its.field), std::move(its.value));
  its.field.clear();
  its.value.clear();
}

class Bare {
 public:
  explicit Bare(http_parser_type type) {
    http_parser_settings_init(&_settings);
    _settings.on_message_begin = [](http_parser* parser) {
      Gathered& its = Of(parser);
      for (std::string* text : {&its.url, &its.body, &its.field, &its.value}) text->clear();
      its.headers.clear();
      its.was_value = false;
      return 0;
    };
    _settings.on_url = [](http_parser* parser, const char* at, size_t size) {
      Of(parser).url.append(at, size);
      return 0;
    };
    _settings.on_header_field = [](http_parser* parser, const char* at, size_t size) {
      Gathered& its = Of(parser);
      if (its.was_value) Add(its);
      its.field.append(at, size);
      its.was_value = false;
      return 0;
    };
    _settings.on_header_value = [](http_parser* parser, const char* at, size_t size) {
      Of(parser).value.append(at, size);
      Of(parser).was_value = true;
      return 0;
    };
    _settings.on_headers_complete = [](http_parser* parser) {
      Add(Of(parser));
      return 0;
    };
    _settings.on_body = [](http_parser* parser, const char* at, size_t size) {
      Of(parser).body.append(at, size);
      return 0;
    };
    _settings.on_message_complete = [](http_parser* parser) {
      ++Of(parser).messages;
      return 0;
    };
    http_parser_init(&_parser, type);
    _parser.data = &_gathered;
  }
  void Execute(const std::string& data) {
    if (http_parser_execute(&_parser, &_settings, data.data(), data.size()) != data.size()) std::abort();
  }
  size_t Messages() const { return _gathered.messages; }

 private:
  http_parser_settings _settings;
  http_parser _parser;
  Gathered _gathered;
};

class Own : private HTTPParser::Listener {
 public:
  explicit Own(int type) : _parser(this, type) {}
  void Execute(const std::string& data) { _parser.Execute(data); }
  size_t Messages() const { return _messages; }

 private:
  void HTTPGotRequest(std::string, std::map<std::string, std::string>&, std::string) override { ++_messages; }
  void HTTPGotResponse(std::map<std::string, std::string>&, std::string) override { ++_messages; }

  HTTPParser _parser;
  size_t _messages = 0;
};

void Parse(benchmark::State& state, const std::string& message, int type) {
  constexpr int kMessages = 100;
  std::string all;
  for (int i = 0; i < kMessages; ++i) all += message;
  std::vector<std::string> chunks;
  for (size_t at = 0; at < all.size(); at += kChunk) chunks.push_back(all.substr(at, kChunk));
  Own own(type);
  Bare bare(static_cast<http_parser_type>(type));
  Turns turns({{"own",
                [&] {
                  for (const auto& chunk : chunks) own.Execute(chunk);
                }},
               {"bare", [&] {
                  for (const auto& chunk : chunks) bare.Execute(chunk);
                }}});
  turns.Measure(state);
  state.counters["messages/s"] = kMessages / turns.Median(0);
  if (own.Messages() != bare.Messages()) std::abort();
}
BENCHMARK_CAPTURE(Parse, requests, kRequest, HTTPParser::TypeRequest)->UseManualTime()->Iterations(2000);
BENCHMARK_CAPTURE(Parse, responses, kResponse, HTTPParser::TypeResponse)->UseManualTime()->Iterations(2000);

}  // namespace

BENCHMARK_MAIN();
