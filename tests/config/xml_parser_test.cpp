#include "config/xml_parser.h"

#include <gtest/gtest.h>

#include <new>
#include <sstream>

namespace {

// One token as text: "<a" and ">a" for an element's start and end, "@a" and "@a=v" for attributes, "'t" for a text,
// "!m" for an error.
std::string Shown(const XMLParser& parser) {
  static const char* const kPrefixes[] = {"<", ">", "@", "@", "'", "start", "end", "!"};
  const auto kind = parser.GetCurrToken();
  return kPrefixes[kind] + parser.GetTokenString() +
         (kind == XMLParser::ATTRIBUTE_VALUE_PAIR ? "=" + parser.GetTokenValue() : "") + "|";
}

// All tokens from here on. An error is recovered from, as a composite does that gives up one child.
std::string TokensFrom(XMLParser& parser) {
  std::string tokens;
  while (parser.GetCurrToken() != XMLParser::END_DOC) {
    parser.GetNextToken();
    tokens += Shown(parser);
    if (parser.GetCurrToken() == XMLParser::ERROR) parser.RecoverFromError();
  }
  return tokens;
}

// Worked by hand; any other bytes, and the pieces of a text, are seen to by fuzz/xml_parser_fuzz.cpp, which runs here
// as well.
TEST(XMLParser, CutsADocumentIntoTokens) {
  const char* const rows[][2] = {
      {"<tagname attr1 attr2=\"attr value string\">string</tagname>",
       "start|<tagname|@attr1|@attr2=attr value string|'string|>tagname|end|"},
      {"<t a= \"1\"b='2'c =3>", "start|<t|@a=1|@b=2|@c|!Empty XML tag name|"},
      {"some string stuff to start with <tag> some tag stuff </tag> end string stuff",
       "start|'some string stuff to start with|<tag|'some tag stuff|>tag|'end string stuff|end|"},
      {"<?xml v?><!--<faketag>--><realtag/><!ENTITY name> <another/>",
       "start|<realtag|>realtag|'|<another|>another|end|"},
      {"< badtagname>just some junk</badtagname><goodstuff/>", "start|!Empty XML tag name|<goodstuff|>goodstuff|end|"},
      {"<badtag/ >just some junk", "start|<badtag|!Invalid XML tag end sequence|"},
      {"<a <b>text</b><c/>", "start|<a|!Cannot start new element inside start tag|<c|>c|end|"},
      {"><a/></x><b/>", "start|!Invalid '>' character outside XML tags|<b|>b|end|"},
  };
  for (const auto& [document, tokens] : rows) {
    std::istringstream in(document);
    XMLParser parser(in);
    EXPECT_EQ(tokens, TokensFrom(parser)) << document;
  }
}

TEST(XMLParser, StepsBackAndReplaysFromItsMark) {
  std::istringstream in("<a><b>1</ b><c/></a><d/>");
  XMLParser parser(in);
  for (int i = 0; i < 2; ++i) parser.PutBackToken();
  EXPECT_EQ(XMLParser::START_DOC, parser.GetNextToken());
  parser.GetNextToken();
  parser.MarkCurrToken();
  parser.GetNextToken();
  EXPECT_EQ("<b|", Shown(parser));
  parser.PutBackToken();
  EXPECT_EQ("<a|", Shown(parser));
  const std::string tokens = TokensFrom(parser);
  parser.GotoMarkedToken();
  EXPECT_EQ(tokens, TokensFrom(parser));
}

template <class Thrown>
class BrokenBuffer : public std::streambuf {
  int underflow() override { throw Thrown(); }
};

TEST(XMLParser, ABrokenStreamIsAnErrorWithoutAMessageAndRecoveryEnds) {
  BrokenBuffer<std::exception> buffer;
  std::istream broken(&buffer), none(nullptr);
  for (std::istream* in : {&broken, &none}) {
    XMLParser parser(*in);
    parser.GetNextToken();
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
