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

// Worked by hand, as in xml_parser_test.cpp.
TEST(XMLString, WrittenTextReadsBackAsItWas) {
  const char* const rows[][2] = {
      {"goodbye & &query;", "goodbye &amp; &query;"},
      {"tricky&", "tricky&amp;"},
      {"&;", "&amp;;"},
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
      {"\"A quoted 'string'\"x", "A quoted 'string'|x"},
      {"A quoted \"string\"", "A quoted|\"string\""},
      {"'A <b>'", "A |<b>'"},
      {"a & b", "a &b|"},  // white space that cuts an entity is lost
  };
  for (const auto& [input, read] : rows) EXPECT_EQ(read, Read<XMLString>(input));
}

TEST(XMLName, ReadsAndWritesTheLegalPart) {
  const char* const rows[][2] = {
      {":name-with_dash<>", ":name-with_dash"}, {".no-name", ""}, {"&entity_name;with junk", "&entity_name;"}};
  for (const auto& [input, name] : rows) {
    EXPECT_EQ(name + std::string("|") + (input + std::string(name).size()), Read<XMLName>(input));
    EXPECT_EQ(name, Written<XMLName>(input));
  }
}

}  // namespace
