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

// Each piece behind its kind: "=" for plain text, "{" for a description, "!" for an unknown query.
TEST(XMLQueryStringParser, CutsATextIntoPieces) {
  const char* const kinds[] = {"item",  "context", "changes", "changes_context", "doctype", "doctype_context", "=", "{",
                               "start", "end",     "!"};
  const char* const rows[][2] = {
      {"", ""},
      {"This is a &query_item; string", "=This is a |item&query_item;|= string|"},
      {"&query; then &query_changes_context;", "context&query;|= then |changes_context&query_changes_context;|"},
      {"an illegal &query string", "=an illegal &query string|"},
      {"&query_changes_item; and &query_junk; query", "changes&query_changes_item;|= and |!&query_junk;|= query|"},
      {"{doctype information}", "{doctype information|"},
      {"begin {doctype}", "=begin {doctype}|"},
      {"{doctype} end", "={doctype} end|"},
      {"{}", "{|"},
      {"{", "={|"},
      {"&query_doctype;&query_doctype_context;&query_doctype_item;",
       "doctype_context&query_doctype;|doctype_context&query_doctype_context;|doctype&query_doctype_item;|"},
  };
  for (const auto& [text, pieces] : rows) {
    XMLQueryStringParser parser(text);
    std::string told;
    do {
      told += kinds[parser.GetNextToken()] + parser.GetTokenString() + "|";
      parser.PutBackToken();
      EXPECT_EQ(parser.GetCurrToken(), parser.GetNextToken());
    } while (parser.GetCurrToken() != XMLQueryStringParser::END_STRING);
    EXPECT_EQ("start|" + std::string(pieces) + "end|", told);
  }
}

}  // namespace
