#include "config/xml_string.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

// What is read, "|", and what stays unread.
template <typename T>
std::string Read(const std::string& text) {
  std::istringstream in(text);
  T value;
  in >> value;
  in.clear();
  return value.get() + "|" + std::string(std::istreambuf_iterator<char>(in), {});
}

template <typename T>
std::string Written(const std::string& text) {
  std::ostringstream out;
  out << T(text);
  return out.str();
}

TEST(XMLString, WrittenTextReadsBackAsItWas) {
  const char* const rows[][2] = {
      {"hello with spaces", "hello with spaces"},
      {"&begin", "&amp;begin"},
      {"goodbye & &query;", "goodbye &amp; &query;"},
      {"tricky&", "tricky&amp;"},
      {"&junk;", "&junk;"},
      {"&;", "&amp;;"},
      {"&a b;&a&b;", "&amp;a b;&amp;a&b;"},
      {"'lots of stuff '\"<>& to do", "&apos;lots of stuff &apos;&quot;&lt;&gt;&amp; to do"},
  };
  for (const auto& [text, written] : rows) {
    EXPECT_EQ(written, Written<XMLString>(text));
    EXPECT_EQ(std::string(text) + "|", Read<XMLString>(written));
  }
}

TEST(XMLString, ReadingStopsWhereTheTextEnds) {
  const char* const rows[][2] = {
      {"Read up to tag </end_tag>", "Read up to tag|</end_tag>"},
      {"<tag> nothing", "|<tag> nothing"},
      {"\"A quoted 'string'\"x", "A quoted 'string'|x"},
      {"' a \"b\" '", " a \"b\" |"},
      {"A quoted \"string\"", "A quoted|\"string\""},
      {"'A <b>'", "A |<b>'"},
      {"AttrName='AttrValue'", "AttrName=|'AttrValue'"},
      {"a & b", "a &b|"},  // white space that cuts an entity is lost
      {"a &quo", "a &quo|"},
      {"&lt<", "&lt|<"},
      {"&a&lt;", "&a<|"},
      {" \t a \n b \n <", "a \n b|<"},
  };
  for (const auto& [input, read] : rows) EXPECT_EQ(read, Read<XMLString>(input));
}

TEST(XMLString, ReportsTheEndOfInputAsAnyExtractorDoes) {
  XMLString text;
  std::istringstream with_text("a"), without(" ");
  EXPECT_TRUE(with_text >> text);
  EXPECT_TRUE(with_text.eof());
  EXPECT_FALSE(without >> text);
}

TEST(XMLName, ReadsAndWritesTheLegalPart) {
  const char* const rows[][2] = {{"name attr=\"value\"", "name"},
                                 {"_na:me/>", "_na:me"},
                                 {":name-with_dash<>", ":name-with_dash"},
                                 {".no-name", ""},
                                 {"&entity_name;with junk", "&entity_name;"},
                                 {"a&b", "a"},
                                 {"\xe9t\xe9", ""}};
  for (const auto& [input, name] : rows) {
    EXPECT_EQ(name + std::string("|") + (input + std::string(name).size()), Read<XMLName>(input));
    EXPECT_EQ(name, Written<XMLName>(input));
  }
}

}  // namespace
