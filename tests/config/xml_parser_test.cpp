#include "config/xml_parser.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace {

// One token as text: "<a" and ">a" for an element's start and end, "@a" and "@a=v" for attributes, "'t" for a text,
// "!m" for an error.
std::string Shown(const XMLParser& parser) {
  static const char* const kPrefixes[] = {"<", ">", "@", "@", "'", "start", "end", "!"};
  const auto kind = parser.GetCurrToken();
  return kPrefixes[kind] + parser.GetTokenString() +
         (kind == XMLParser::ATTRIBUTE_VALUE_PAIR ? "=" + parser.GetTokenValue() : "") + "|";
}

// All tokens up to the end. An error is recovered from, as a composite does that gives up one child.
std::string Tokens(const std::string& document) {
  std::istringstream in(document);
  XMLParser parser(in);
  std::string tokens;
  EXPECT_EQ(XMLParser::START_DOC, parser.GetNextToken());
  for (;;) {
    const auto kind = parser.GetNextToken();
    tokens += Shown(parser);
    if (kind == XMLParser::END_DOC) return tokens;
    if (kind != XMLParser::ERROR) continue;
    EXPECT_EQ(XMLParser::ERROR, parser.GetNextToken()) << "an error stays until it is recovered from";
    parser.RecoverFromError();
  }
}

const std::string empty = "!Empty XML tag name|", bad_end = "!Invalid XML tag end sequence|",
                  stray = "!Invalid '>' character outside XML tags|",
                  nested = "!Cannot start new element inside start tag|";

TEST(XMLParser, CutsADocumentIntoTokens) {
  const struct {
    const char* document;
    std::string tokens;
  } rows[] = {
      {"", "end|"},
      {"<tagname attr1 attr2=\"attr value string\">string</tagname>",
       "<tagname|@attr1|@attr2=attr value string|'string|>tagname|end|"},
      {"<tagname attr1=\"val1\" attr2='val2' attr3/><tag2></tag2><tag3/>",
       "<tagname|@attr1=val1|@attr2=val2|@attr3|>tagname|<tag2|>tag2|<tag3|>tag3|end|"},
      {"<t a= \"1\"b=2>", "<t|@a=1|@b=2|end|"},
      {"<t a =1>", "<t|@a|" + empty + "end|"},
      {"some string stuff to start with <tag> some tag stuff </tag> end string stuff",
       "'some string stuff to start with|<tag|'some tag stuff|>tag|'end string stuff|end|"},
      {"<?xml version stuff?><!--comment--><realtag/><!ENTITY name><another/>",
       "<realtag|>realtag|<another|>another|end|"},
      {"<!--- ---><a/>", "<a|>a|end|"},
      {"<!--><b/>--><a/>", "<a|>a|end|"},
      {"<!><a/><?><b/>?><c/>", "<a|>a|<c|>c|end|"},
      {"<!a> <b/>", "'|<b|>b|end|"},
      {"<!-- never ends", "end|"},
      {"<realtag1>{document type information}</realtag1>   {some more doctype stuff}   ",
       "<realtag1|'{document type information}|>realtag1|'{some more doctype stuff}|end|"},
      {"<a &query_item;>", "<a|@&query_item;|end|"},
      {"</", "end|"},
      {"<a b", "<a|end|"},
      {"< badtagname>just some junk</badtagname><goodstuff/>", empty + "<goodstuff|>goodstuff|end|"},
      {"<badtag/ >just some junk", "<badtag|" + bad_end + "end|"},
      {"<badendtag>just some junk</badendtag >", "<badendtag|'just some junk|" + bad_end + "end|"},
      {"<a></><b/></a>", "<a|" + empty + "end|"},
      {"><a/></x><b/>", stray + "<b|>b|end|"},
      {"<a <b>text</b><c/>", "<a|" + nested + "<c|>c|end|"},
      {"<a %>text</a><c/>", "<a|" + empty + "<c|>c|end|"},
  };
  for (const auto& row : rows) EXPECT_EQ(row.tokens, Tokens(row.document)) << row.document;
}

TEST(XMLParser, ReplaysWhatItHasReadErrorsIncluded) {
  std::istringstream in("<a><b>1</ b><c/></a><d/>");
  XMLParser parser(in);
  parser.PutBackToken();
  EXPECT_EQ(XMLParser::START_DOC, parser.GetNextToken());
  parser.GetNextToken();
  parser.MarkCurrToken();
  const auto start = parser.GetPosition();
  std::vector<std::string> passes;
  for (int pass = 0; pass < 3; ++pass) {
    std::string tokens;
    while (parser.GetNextToken() != XMLParser::ERROR) tokens += Shown(parser);
    parser.RecoverFromError();
    tokens += Shown(parser);
    while (parser.GetNextToken() != XMLParser::END_DOC) tokens += Shown(parser);
    passes.push_back(tokens);
    pass == 0 ? parser.GotoMarkedToken() : parser.SetPosition(start);
  }
  // The text " b>" behind the error starts with a second one, for its ">".
  EXPECT_EQ("<b|'1|>a|<d|>d|", passes[0]);
  EXPECT_EQ(passes[0], passes[1]);
  EXPECT_EQ(passes[0], passes[2]);
}

class BrokenBuffer : public std::streambuf {
  int underflow() override { throw std::runtime_error("broken"); }
};

TEST(XMLParser, ABrokenStreamIsAnErrorWithoutAMessageAndRecoveryEnds) {
  BrokenBuffer buffer;
  std::istream broken(&buffer), none(nullptr);
  for (std::istream* in : {&broken, &none}) {
    XMLParser parser(*in);
    parser.GetNextToken();
    EXPECT_EQ(XMLParser::ERROR, parser.GetNextToken());
    EXPECT_EQ("", parser.GetTokenString());
    parser.RecoverFromError();
    EXPECT_TRUE(in->bad());
  }
}

TEST(XMLQueryStringParser, CutsATextIntoPieces) {
  // "=" plain text, "{" a description, "!" an unknown query; a known one by its entity's name.
  const char* const names[] = {
      "item", "context", "changes_item", "changes_context", "doctype_item", "doctype_context", "=", "{", "start",
      "end",  "!"};
  const struct {
    const char* text;
    const char* pieces;
  } rows[] = {
      {"", "start|end|"},
      {"This is a &query_item; string", "start|=This is a |item&query_item;|= string|end|"},
      {"This isn't", "start|=This isn't|end|"},
      {"&query; at the beginning", "start|context&query;|= at the beginning|end|"},
      {"at the end &query_changes_context;", "start|=at the end |changes_context&query_changes_context;|end|"},
      {"an illegal &query string", "start|=an illegal &query string|end|"},
      {"&query_changes_item; and then an error &query_junk; query",
       "start|changes_item&query_changes_item;|= and then an error |!&query_junk;|= query|end|"},
      {"{doctype information}", "start|{doctype information|end|"},
      {"begin {doctype information}", "start|=begin {doctype information}|end|"},
      {"{doctype information} end", "start|={doctype information} end|end|"},
      {"{}{", "start|={}{|end|"},
      {"{}", "start|{|end|"},
      {"{", "start|={|end|"},
      {"&query_context;&query_changes;&query_doctype;&query_doctype_context;&query_doctype_item;",
       "start|context&query_context;|changes_context&query_changes;|doctype_context&query_doctype;|"
       "doctype_context&query_doctype_context;|doctype_item&query_doctype_item;|end|"},
  };
  for (const auto& row : rows) {
    XMLQueryStringParser parser(row.text);
    std::string pieces;
    XMLQueryStringParser::QueryTokenKind kind{};
    do {
      kind = parser.GetNextToken();
      pieces += names[kind] + parser.GetTokenString() + "|";
      parser.PutBackToken();
      EXPECT_EQ(kind, parser.GetNextToken());
    } while (kind != XMLQueryStringParser::END_STRING);
    EXPECT_EQ(row.pieces, pieces);
  }
}

}  // namespace
