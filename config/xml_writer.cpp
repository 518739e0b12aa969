#include "config/xml_writer.h"

#include "config/xml_string.h"

void XMLWriter::WriteStartDoc() {
  _depth = 0;
  _out << "<?xml version=\"1.0\"?>";
}

void XMLWriter::WriteEndDoc() {
  if (_tag_open) {
    _out << "/>";
    dec_indent();
    _tag_open = _need_space = false;
  }
  _out << std::endl;
}

void XMLWriter::WriteStartElement(const std::string& name) {
  _end_start_tag();
  if (name.empty()) return;
  write_indent();
  _out << '<';
  XMLName::Write(_out, name);
  _tag_open = _need_space = _inline_close = true;
  ++_depth;
}

void XMLWriter::WriteEndElement(const std::string& name) {
  dec_indent();
  if (_tag_open) {
    _out << "/>";
    _tag_open = _need_space = false;
  } else if (!name.empty()) {
    if (!_inline_close) write_indent();
    _out << "</";
    XMLName::Write(_out, name);
    _out << '>';
    _need_space = false;
  }
  _inline_close = false;
}

void XMLWriter::WriteAttribute(const std::string& name) {
  if (name.empty()) return;
  if (_need_space) _out << ' ';
  XMLName::Write(_out, name);
  _need_space = true;
}

void XMLWriter::WriteAttributeValuePair(const std::string& name, const std::string& value) {
  if (name.empty()) return;
  WriteAttribute(name);
  _out << "=\"";
  XMLString::Write(_out, value);
  _out << '"';
}

void XMLWriter::write_string(const std::string& text, bool translate) {
  if (text.empty()) return;
  if (_tag_open) {
    _end_start_tag();
  } else if (_need_space) {
    _out << ' ';
  }
  if (translate)
    XMLString::Write(_out, text);
  else
    _out << text;
  _need_space = true;
}

void XMLWriter::dec_indent() {
  if (_depth > 0) --_depth;
}

void XMLWriter::write_indent() {
  if (!_indent) return;
  _out << std::endl;
  for (int i = 0; i < _depth; ++i) _out << '\t';
}

void XMLWriter::_end_start_tag() {
  if (!_tag_open) return;
  _out << '>';
  _tag_open = _need_space = false;
}
