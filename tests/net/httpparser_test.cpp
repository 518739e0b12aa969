#include "net/httpparser.h"

#include <gtest/gtest.h>

#include "tests/support/error_text.h"

namespace {

struct Told : HTTPParser::Listener {
  void HTTPGotRequest(std::string url, std::map<std::string, std::string>& headers, std::string body) override {
    all += url + ' ' + headers["A"] + " \"" + body + "\"\n";
  }
  void HTTPGotResponse(std::map<std::string, std::string>& headers, std::string body) override {
    HTTPGotRequest("response", headers, body);
  }
  std::string all;
};

TEST(HTTPParser, TellsMessagesAndWhatIsNone) {
  const std::string chunks = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n2\r\nyz\r\n0\r\n";
  const struct {
    const char* name;
    int type;
    std::string bytes, told, error;
  } rows[] = {
      {"the last field of a name", 0, "GET /a?b=%20 HTTP/1.1\r\nA: 1\r\na: 2\r\nA: 3\r\n\r\n", "/a?b=%20 3 \"\"\n", ""},
      {"the end ends it", 7, "HTTP/1.0 200 OK\r\n\r\nbody", "response  \"body\"\n", ""},
      {"a field behind chunks", 1, chunks + "A: 1\r\nB: 2\r\n\r\n", "response 1 \"xyz\"\n", ""},
      {"the last one there", 1, chunks + "B: 2\r\nA: 1\r\n\r\n", "response  \"xyz\"\n", ""},
      {"no request", 0, "HTTP/1.1 200 OK\r\n\r\n", "", "HPE_INVALID_METHOD: invalid HTTP method"},
      {"no response", 1, "GET / HTTP/1.1\r\n\r\n", "", "HPE_INVALID_CONSTANT: invalid constant string"},
      {"cut short", 1, "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nbody", "",
       "HPE_INVALID_EOF_STATE: stream ended at an unexpected time"},
  };
  for (const auto& row : rows) {
    Told told;
    HTTPParser parser(&told, row.type);
    const std::string error = ErrorText([&] {
      parser.Execute(row.bytes);
      parser.EndOfData();
    });
    EXPECT_EQ(row.told, told.all) << row.name;
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
  EXPECT_EQ("/  \"\"\n", told.all);
}

}  // namespace
