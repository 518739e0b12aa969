// Emits the XML dialect, pretty or compact.

#pragma once

#include <ostream>
#include <string>

// Writes start tags, attributes, texts and end tags as they are told; it holds no stack and checks no nesting.
//
// Pretty: every element starts on a new line with one tab per depth, the first one too; a text stands on one line with
// its tags; an end tag that follows children stands on a line of its own. Compact: no line break and no tab at all.
// In both forms a blank separates texts that follow each other. An element without a body is closed with "/>".
//
// The stream is not owned. Its state tells of failures; nothing here throws by itself.
class XMLWriter {
 public:
  XMLWriter(std::ostream& out, bool indent) : _out(out), _indent(indent) {}
  XMLWriter(const XMLWriter&) = delete;
  XMLWriter& operator=(const XMLWriter&) = delete;

  void WriteStartDoc();
  void WriteEndDoc();

  // An empty name ends an open start tag and writes nothing else.
  void WriteStartElement(const std::string& name);
  void WriteEndElement(const std::string& name);

  // Only between WriteStartElement and the body; an empty name writes nothing.
  void WriteAttribute(const std::string& name);
  void WriteAttributeValuePair(const std::string& name, const std::string& value);

  // translate: markup becomes entities; otherwise the text goes out as it stands.
  void write_string(const std::string& text, bool translate);

  void inc_indent() { ++_depth; }
  void dec_indent();
  void write_indent();

  std::ostream& stream() { return _out; }

 private:
  void _end_start_tag();

  std::ostream& _out;
  const bool _indent;
  bool _tag_open = false;  // a start tag waits for its ">"
  int _depth = 0;
  bool _need_space = false;   // the next attribute or text is separated by a blank
  bool _inline_close = true;  // the next end tag stays on its line
};
