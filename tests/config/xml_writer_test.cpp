#include "config/xml_writer.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

// What the tree never asks for; the rest is seen to by fuzz/configurable_fuzz.cpp.
TEST(XMLWriter, StartsAndEndsDocumentsAndLeavesOutWhatHasNoName) {
  std::ostringstream out;
  XMLWriter writer(out, true);
  const auto leaf = [&writer](const char* name) {
    writer.WriteStartElement(name);
    writer.WriteAttribute("");
    writer.WriteAttributeValuePair("", "nothing");
    writer.write_string("", true);
    writer.WriteEndElement(name);
  };
  writer.WriteStartElement("before");
  writer.WriteStartDoc();
  writer.WriteStartElement("a b");
  leaf("leaf");
  leaf("");
  writer.WriteStartElement("open");
  writer.WriteEndDoc();
  writer.write_string("<text>", false);
  for (const char* more : {"a", "b", "c"}) writer.WriteEndElement(more);
  EXPECT_EQ("\n<before<?xml version=\"1.0\"?>>\n<a>\n\t<leaf/>\n<open/>\n<text></a>\n</b>\n</c>", out.str());
}

}  // namespace
