#include "config/xml_string.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

template <typename T>
std::string Read(const std::string& text, std::string* rest = nullptr) {
  std::istringstream in(text);
  T value;
  in >> value;
  if (rest != nullptr) {
    in.clear();
    std::getline(in, *rest, '\0');
  }
  return value.get();
}

template <typename T>
std::string Written(const std::string& text) {
  std::ostringstream out;
  out << T(text);
  return out.str();
}

TEST(XMLString, WrittenTextReadsBackAsItWas) {
  const struct {
    const char* text;
    const char* written;
  } rows[] = {{"hello with spaces", "hello with spaces"},
              {"<", "&lt;"},
              {">", "&gt;"},
              {"\"", "&quot;"},
              {"&", "&amp;"},
              {"'", "&apos;"},
              {"&begin", "&amp;begin"},
              {"goodbye & &query;", "goodbye &amp; &query;"},
              {"tricky&", "tricky&amp;"},
              {"&junk;", "&junk;"},
              {"&;", "&amp;;"},
              {"&a b;", "&amp;a b;"},
              {"&a&b;", "&amp;a&b;"},
              {"'lots of stuff '\"<>& to do", "&apos;lots of stuff &apos;&quot;&lt;&gt;&amp; to do"}};
  for (const auto& row : rows) {
    EXPECT_EQ(row.written, Written<XMLString>(row.text));
    EXPECT_EQ(row.text, Read<XMLString>(row.written));
  }
}

TEST(XMLString, ReadingStopsWhereTheTextEnds) {
  const struct {
    const char* name;
    const char* input;
    const char* text;
    const char* rest;
  } rows[] = {{"at a tag", "Read up to tag </end_tag>", "Read up to tag", "</end_tag>"},
              {"before anything", "<tag> nothing", "", "<tag> nothing"},
              {"double quotes", "\"A quoted 'string'\"x", "A quoted 'string'", "x"},
              {"single quotes", "'A quoted \"string\"'", "A quoted \"string\"", ""},
              {"quotes keep blanks", "' a '", " a ", ""},
              {"at a quote", "A quoted \"string\"", "A quoted", "\"string\""},
              {"behind a quoted part", "'A quoted' string", "A quoted", " string"},
              {"markup ends a quoted text", "'A <b>'", "A ", "<b>'"},
              {"unquoted value", "AttrName='AttrValue'", "AttrName=", "'AttrValue'"},
              {"white space cuts an entity and is lost", "a & b", "a &b", ""},
              {"cut-off entity", "a &quo", "a &quo", ""},
              {"entity cut by markup", "&lt<", "&lt", "<"},
              {"entity cut by another", "&a&lt;", "&a<", ""},
              {"leading and trailing white space", " \t a \n b \n <", "a \n b", "<"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    std::string rest;
    EXPECT_EQ(row.text, Read<XMLString>(row.input, &rest));
    EXPECT_EQ(row.rest, rest);
  }
}

TEST(XMLString, ReportsTheEndOfInputAsAnyExtractorDoes) {
  XMLString text;
  std::istringstream with_text("a"), without(" "), failed("a");
  EXPECT_TRUE(with_text >> text);
  EXPECT_TRUE(with_text.eof());
  EXPECT_FALSE(without >> text);
  failed.setstate(std::ios::failbit);
  failed >> text;
  EXPECT_EQ("", text.get());
}

TEST(XMLName, ReadsAndWritesTheLegalPart) {
  const struct {
    const char* input;
    const char* name;
  } rows[] = {{"name attr=\"value\"", "name"},
              {"_na:me/>", "_na:me"},
              {":name<tag>", ":name"},
              {":name-with_dash<>", ":name-with_dash"},
              {".no-name", ""},
              {"<tag>not a name", ""},
              {"&entity_name;with junk", "&entity_name;"},
              {"name with spaces", "name"},
              {"a&b", "a"},
              {"\xe9t\xe9", ""}};
  for (const auto& row : rows) {
    EXPECT_EQ(row.name, Read<XMLName>(row.input));
    EXPECT_EQ(row.name, Written<XMLName>(row.input));
  }
}

}  // namespace
