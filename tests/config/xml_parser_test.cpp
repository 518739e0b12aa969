#include "config/xml_parser.h"

#include <gtest/gtest.h>

#include <new>

// Any text is held against a second form in fuzz/xml_parser_fuzz.cpp.

namespace {

template <class Thrown>
class BrokenBuffer : public std::streambuf {
  int underflow() override { throw Thrown(); }
};

TEST(XMLParser, ABrokenStreamIsAnErrorWithoutAMessageAndRecoveryEnds) {
  BrokenBuffer<std::exception> buffer;
  std::istream broken(&buffer), none(nullptr);
  for (std::istream* in : {&broken, &none}) {
    XMLParser parser(*in);
    parser.PutBackToken();
    EXPECT_EQ(XMLParser::START_DOC, parser.GetNextToken());
    EXPECT_EQ(XMLParser::ERROR, parser.GetNextToken());
    EXPECT_EQ("", parser.GetTokenString());
    parser.RecoverFromError();
    EXPECT_TRUE(in->bad());
  }
  BrokenBuffer<std::bad_alloc> exhausted;
  std::istream in(&exhausted);
  XMLParser parser(in);
  parser.GetNextToken();
  EXPECT_THROW(parser.GetNextToken(), std::bad_alloc);
}

}  // namespace
