#include "config/xml_writer.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

void WriteGreeting(XMLWriter& writer) {
  const auto leaf = [&writer](const char* name, const char* text) {
    writer.WriteStartElement(name);
    writer.write_string(text, true);
    writer.WriteEndElement(name);
  };
  writer.WriteStartDoc();
  leaf("greeting", "Hello, <world>!");
  writer.WriteStartElement("tag1");
  writer.WriteAttributeValuePair("tag1_attr", "tag1_val");
  writer.WriteAttribute("tag1_attr2");
  writer.WriteEndElement("tag1");
  writer.WriteStartElement("tag2");
  writer.WriteStartElement("tag3");
  writer.WriteAttribute("attr");
  writer.WriteAttribute("");
  writer.WriteAttributeValuePair("", "nothing");
  writer.write_string("Howdy from", true);
  writer.write_string("", true);
  writer.write_string("<tag3>", false);
  leaf("TARNO::tag31", "this is tag31");
  writer.WriteEndElement("tag3");
  writer.WriteEndElement("tag2");
  writer.WriteStartElement("tag4");
  writer.WriteStartElement("");
  writer.WriteEndElement("");
  writer.WriteStartElement("tag5");
  writer.WriteEndDoc();
  writer.WriteEndElement("more");
  writer.WriteEndElement("ends");
}

TEST(XMLWriter, WritesPrettyAndCompact) {
  std::ostringstream pretty, compact;
  XMLWriter pretty_writer(pretty, true), compact_writer(compact, false);
  WriteGreeting(pretty_writer);
  WriteGreeting(compact_writer);
  EXPECT_EQ(
      "<?xml version=\"1.0\"?>\n"
      "<greeting>Hello, &lt;world&gt;!</greeting>\n"
      "<tag1 tag1_attr=\"tag1_val\" tag1_attr2/>\n"
      "<tag2>\n"
      "\t<tag3 attr>Howdy from <tag3>\n"
      "\t\t<TARNO::tag31>this is tag31</TARNO::tag31>\n"
      "\t</tag3>\n"
      "</tag2>\n"
      "<tag4>\n"
      "<tag5/>\n"
      "</more>\n"
      "</ends>",
      pretty.str());
  std::string one_line = pretty.str();
  std::erase_if(one_line, [](char c) { return c == '\n' || c == '\t'; });
  EXPECT_EQ(one_line, compact.str().erase(compact.str().find('\n'), 1));
}

}  // namespace
