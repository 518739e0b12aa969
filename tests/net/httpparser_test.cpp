#include "net/httpparser.h"

#include <gtest/gtest.h>

#include "tests/support/error_text.h"

// What a message is told as, in pieces of any size, is seen to by fuzz/httpparser_fuzz.cpp.

namespace {

TEST(HTTPParser, TellsWhatIsNoMessage) {
  const struct {
    int type;
    const char *bytes, *error;
  } rows[] = {{HTTPParser::TypeRequest, "HTTP/1.1 200 OK\r\n\r\n", "HPE_INVALID_METHOD: invalid HTTP method"},
              {HTTPParser::TypeResponse, "GET / HTTP/1.1\r\n\r\n", "HPE_INVALID_CONSTANT: invalid constant string"},
              {HTTPParser::TypeBoth, "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nbody",
               "HPE_INVALID_EOF_STATE: stream ended at an unexpected time"}};
  for (const auto& row : rows) {
    HTTPParser::Listener nobody;
    HTTPParser parser(&nobody, row.type);
    EXPECT_EQ(row.error, ErrorText([&] {
                parser.Execute(row.bytes);
                parser.EndOfData();
              }));
  }
}

}  // namespace
