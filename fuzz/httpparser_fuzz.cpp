// HTTP messages, cut at any place, in two ways.
//
// Raw: the input as it is gives the same calls and the same error whole, in pieces and byte by byte. A listener that
// throws at each call gets the same calls byte by byte, and each of its exceptions comes out.
//
// Composed: the input chooses messages. What is sent is known, so what has to be told is known as well.
//
// Input: a byte for the parser's type and the way, a byte for the size of the pieces, and the bytes.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "net/httpparser.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

using Headers = std::map<std::string, std::string>;

struct Call {
  std::string url;  // "response" of a response
  Headers headers;
  std::string body;
  bool operator==(const Call&) const = default;
};

struct Thrown {};

class Recorder : public HTTPParser::Listener {
 public:
  void HTTPGotRequest(std::string url, Headers& headers, std::string body) override { Take({url, headers, body}); }
  void HTTPGotResponse(Headers& headers, std::string body) override { Take({"response", headers, body}); }
  void Take(const Call& call) {
    calls.push_back(call);
    if (throws) throw Thrown();
  }

  bool throws = false;
  std::vector<Call> calls;
};

struct Outcome {
  std::vector<Call> calls;
  std::string error;
  size_t consumed = 0;
  size_t thrown = 0;
};

// Feeds up to the first byte that isn't HTTP, and tells the end of the stream when there is none.
Outcome Feed(int type, const std::string& bytes, size_t piece, bool throws = false) {
  Recorder recorder;
  recorder.throws = throws;
  HTTPParser parser(&recorder, type);
  Outcome outcome;
  try {
    bool refused = false;
    for (size_t at = 0; at < bytes.size() && !refused; at += piece) {
      const std::string part = bytes.substr(at, piece);
      const size_t calls = recorder.calls.size();
      size_t consumed = part.size();
      try {
        consumed = parser.Execute(part);
      } catch (const Thrown&) {
        ++outcome.thrown;
      }
      outcome.consumed += consumed;
      // Behind a message that asked for another protocol the rest is the caller's, and in one piece it is left over.
      refused = consumed < part.size() || (parser.Upgrade() && recorder.calls.size() > calls);
    }
    REQUIRE(parser.Execute("") == 0);
    if (!refused) parser.EndOfData();
  } catch (const Thrown&) {
    ++outcome.thrown;
  } catch (const HTTPParser::Error& error) {
    outcome.error = error.what();
  }
  outcome.calls = recorder.calls;

  // Whatever it was left with, it starts afresh.
  recorder.throws = false;
  parser.Reset();
  REQUIRE(!parser.Upgrade());
  const bool response = type == HTTPParser::TypeResponse;
  parser.Execute(response ? "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n" : "GET / HTTP/1.1\r\n\r\n");
  REQUIRE(recorder.calls.size() == outcome.calls.size() + 1);
  const Call fresh = response ? Call{"response", {{"Content-Length", "0"}}, ""} : Call{"/", {}, ""};
  REQUIRE(recorder.calls.back() == fresh);
  return outcome;
}

class Composer {
 public:
  Composer(int type, const std::string& input) : _rest(input) {
    _request = type == HTTPParser::TypeRequest || (type > HTTPParser::TypeResponse && Byte() % 2 == 0);
    while (!_rest.empty() && !_over) Compose();
  }

  std::string bytes;
  std::vector<Call> calls;
  std::string behind;  // of another protocol

 private:
  unsigned char Byte() {
    if (_rest.empty()) return 0;
    const auto byte = static_cast<unsigned char>(_rest[0]);
    _rest.erase(0, 1);
    return byte;
  }
  std::string Text(const std::string& letters) {
    std::string text(Byte() % 16, ' ');
    for (char& c : text) c = letters[Byte() % letters.size()];
    return text;
  }
  // Few names, so that some come twice.
  void Field(Headers& headers, bool told = true) {
    const std::string name = "X-" + Text("aA").substr(0, 2), value = Text("ab,=\"").append(Byte() % 4, 'z');
    bytes += name + (Byte() % 2 == 0 ? ":" : ": \t") + value + "\r\n";
    if (told) headers[name] = value;
  }
  void FieldIs(Headers& headers, const std::string& name, const std::string& value) {
    bytes += name + ": " + value + "\r\n";
    headers[name] = value;
  }

  void Compose() {
    const unsigned char how = Byte();
    Call call{_request ? "/" + Text("abc/%2?=") : "response", {}, {}};
    for (int blank = how >> 6; blank > 0; --blank) bytes += "\r\n";
    bytes += _request ? "POST " + call.url + " HTTP/1.1\r\n" : "HTTP/1.1 200 Fine\r\n";
    for (int fields = how >> 4 & 3; fields > 0; --fields) Field(call.headers);
    switch (how & 3) {
      case 0:
        call.body = Text({"a\0\n\r0\xFF", 6});
        FieldIs(call.headers, "content-LENGTH", std::to_string(call.body.size()));
        bytes += "\r\n" + call.body;
        break;
      case 1:
        Chunks(call);
        break;
      case 2:
        _over = true;
        if (_request) {
          FieldIs(call.headers, "Connection", "upgrade");
          FieldIs(call.headers, "Upgrade", "other");
          bytes += "\r\n";
          behind = _rest;
        } else {
          bytes += "\r\n" + _rest;
          call.body = _rest;
        }
        break;
      default:  // no body
        if (!_request) FieldIs(call.headers, "Content-Length", "0");
        bytes += "\r\n";
    }
    calls.push_back(call);
  }
  void Chunks(Call& call) {
    FieldIs(call.headers, "Transfer-Encoding", "chunked");
    bytes += "\r\n";
    for (int chunks = Byte() % 4; chunks > 0; --chunks) {
      const std::string chunk = "+" + Text({"a\0\n\r0\xFF", 6});
      static const std::string digits = "0123456789abcdef";
      bytes +=
          (chunk.size() > 15 ? "10" : std::string(1, digits[chunk.size()])) + (chunks % 2 == 0 ? ";ext\r\n" : "\r\n");
      bytes += chunk + "\r\n";
      call.body += chunk;
    }
    bytes += "0\r\n";
    for (int fields = Byte() % 3; fields > 0; --fields) Field(call.headers, fields > 1);
    bytes += "\r\n";
  }

  std::string _rest;
  bool _request = false;
  bool _over = false;
};

void Raw(int type, const std::string& bytes, size_t piece) {
  const Outcome whole = Feed(type, bytes, bytes.size() + 1);
  for (const size_t cut : {piece, size_t{1}}) {
    const Outcome cutUp = Feed(type, bytes, cut);
    REQUIRE(cutUp.calls == whole.calls);
    REQUIRE(cutUp.error == whole.error);
  }
  const Outcome throwing = Feed(type, bytes, 1, true);
  REQUIRE(throwing.calls == whole.calls && throwing.thrown == whole.calls.size());
  // In one piece the first is thrown and the others are lost, but for one that only the end completes.
  const Outcome lost = Feed(type, bytes, bytes.size() + 1, true);
  REQUIRE(lost.calls.size() == lost.thrown && lost.calls.size() <= 2 && lost.calls.empty() == whole.calls.empty());
  REQUIRE(lost.calls.empty() || lost.calls[0] == whole.calls[0]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const int type = data[0] % 3;
  const size_t piece = size_t{data[1]} + 1;
  const std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
  if ((data[0] & 4) == 0) {
    Raw(type, bytes, piece);
    return 0;
  }
  const Composer sent(type, bytes);
  for (const size_t cut : {piece, size_t{1}, sent.bytes.size() + sent.behind.size() + 1}) {
    const Outcome got = Feed(type, sent.bytes + sent.behind, cut);
    REQUIRE(got.error.empty());
    REQUIRE(got.calls == sent.calls);
    if (cut > sent.bytes.size() || cut == 1) REQUIRE(got.consumed == sent.bytes.size());
  }
  return 0;
}
