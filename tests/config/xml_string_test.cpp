#include "config/xml_string.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

template <typename T>
std::string Read(const std::string& text) {
  std::istringstream in(text);
  T value;
  in >> value;
  return value.get();
}

template <typename T>
std::string Written(const std::string& text) {
  std::ostringstream out;
  out << T(text);
  return out.str();
}

// Worked by hand, as in xml_parser_test.cpp.
TEST(XMLString, ReadsAndWritesTheLegalPart) {
  const char* const both_ways[][2] = {
      {"goodbye & &query;", "goodbye &amp; &query;"},
      {"tricky&", "tricky&amp;"},
      {"&;", "&amp;;"},
      {"'lots of stuff '\"<>& to do", "&apos;lots of stuff &apos;&quot;&lt;&gt;&amp; to do"},
  };
  for (const auto& [text, written] : both_ways) {
    EXPECT_EQ(written, Written<XMLString>(text));
    EXPECT_EQ(text, Read<XMLString>(written));
  }
  EXPECT_EQ("Read up to tag", Read<XMLString>(" Read up to tag </end_tag>"));
  EXPECT_EQ("A quoted 'string' ", Read<XMLString>("\"A quoted 'string' \""));
  EXPECT_EQ("A quoted", Read<XMLString>("A quoted \"string\""));
  EXPECT_EQ(":name-with_dash", Read<XMLName>(":name-with_dash<>"));
  EXPECT_EQ("&entity_name;", Read<XMLName>("&entity_name;with junk"));
  EXPECT_EQ("name", Written<XMLName>("name with spaces"));
}

}  // namespace
