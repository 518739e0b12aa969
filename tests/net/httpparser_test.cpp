#include "net/httpparser.h"

#include <gtest/gtest.h>

#include "tests/support/error_text.h"

namespace {

class Told : public HTTPParser::Listener {
 public:
  void HTTPGotRequest(std::string url, std::map<std::string, std::string>& headers, std::string body) override {
    Add("request " + url, headers, body);
  }
  void HTTPGotResponse(std::map<std::string, std::string>& headers, std::string body) override {
    Add("response", headers, body);
  }
  void Add(std::string text, const std::map<std::string, std::string>& headers, const std::string& body) {
    for (const auto& [name, value] : headers) text.append(" ").append(name).append("=").append(value);
    all += text + " \"" + body + "\"\n";
  }

  std::string all;
};

TEST(HTTPParser, TellsEachMessageAndWhatIsNone) {
  const struct {
    const char* name;
    int type;
    std::string bytes;
    std::string told;
    std::string error;
  } rows[] = {
      {"header fields", 0, "GET /a?b=%20 HTTP/1.1\r\nA: 1\r\na: 2\r\nA: 3\r\n\r\n", "request /a?b=%20 A=3 a=2 \"\"\n",
       ""},
      {"no trace of the one before", 2, "PUT /1 HTTP/1.1\r\nA: 1\r\nContent-Length: 2\r\n\r\nxyGET /2 HTTP/1.1\r\n\r\n",
       "request /1 A=1 Content-Length=2 \"xy\"\nrequest /2 \"\"\n", ""},
      {"the end ends it", 7, "HTTP/1.0 200 OK\r\n\r\nbody", "response \"body\"\n", ""},
      {"fields behind chunks", 1,
       "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n2\r\nyz\r\n0\r\nA: 1\r\nB: 2\r\n\r\n",
       "response A=1 Transfer-Encoding=chunked \"xyz\"\n", ""},
      {"the wrong kind", 0, "HTTP/1.1 200 OK\r\n\r\n", "", "HPE_INVALID_METHOD: invalid HTTP method"},
      {"the other wrong kind", 1, "GET / HTTP/1.1\r\n\r\n", "", "HPE_INVALID_CONSTANT: invalid constant string"},
      {"garbage behind a message", 0, "GET / HTTP/1.1\r\n\r\n\x1F", "request / \"\"\n",
       "HPE_INVALID_METHOD: invalid HTTP method"},
      {"cut short", 1, "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nbody", "",
       "HPE_INVALID_EOF_STATE: stream ended at an unexpected time"},
  };
  Told told;
  for (const auto& row : rows) {
    HTTPParser parser(&told, row.type);
    const std::string error = ErrorText([&] {
      parser.Execute(row.bytes);
      parser.EndOfData();
    });
    EXPECT_EQ(row.told, std::exchange(told.all, "")) << row.name;
    EXPECT_EQ(row.error.empty() ? "nothing thrown" : row.error, error) << row.name;
  }
}

TEST(HTTPParser, LeavesOtherProtocolsAloneAndStartsAfresh) {
  Told told;
  HTTPParser parser(&told, HTTPParser::TypeBoth);
  const std::string request = "GET / HTTP/1.1\r\nConnection: upgrade\r\nUpgrade: other\r\n\r\n";
  EXPECT_EQ(request.size(), parser.Execute(request + "\x01\x02"));
  EXPECT_TRUE(parser.Upgrade());
  EXPECT_EQ(0U, parser.Execute("\x01\x02"));
  parser.EndOfData();
  parser.Reset();
  EXPECT_FALSE(parser.Upgrade());
  parser.Execute("HTTP/1.1 200 OK\r\nLost: 1\r\n");
  parser.Reset();
  told.all.clear();
  parser.Execute("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
  EXPECT_EQ("response Content-Length=0 \"\"\n", told.all);
}

}  // namespace
