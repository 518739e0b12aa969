// Texts and names of the XML dialect: the smallest pieces that the tokenizer reads and the writer writes.

#pragma once

#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

// Drops characters while isspace holds. Stops at the end of input, and does nothing on a stream that is not good.
void eatwhite(std::istream& in);

// A piece of character data or an attribute value.
//
// Reading knows the five entities &lt; &gt; &quot; &apos; &amp; and takes every other one as it stands, which is how a
// query such as "&query_item;" survives. Leading white space is dropped. A text that starts with a quote goes up to
// the same quote; any other up to a quote, without its trailing white space. "<" and ">" end both and stay unread.
//
// Writing is the reverse, and leaves alone what already is an entity.
class XMLString {
 public:
  XMLString() = default;
  explicit XMLString(std::string text) : _text(std::move(text)) {}
  XMLString(const XMLString&) = default;
  XMLString(XMLString&&) = default;
  XMLString& operator=(const XMLString&) = default;
  XMLString& operator=(XMLString&&) = default;
  virtual ~XMLString() = default;

  const std::string& get() const { return _text; }
  void set(std::string text) { _text = std::move(text); }

  // Replaces the text. The eofbit is set when the text ran to the end of input, the failbit only when there was
  // nothing but white space before it or the stream was not good at entry. What the stream's buffer throws goes
  // through.
  virtual void _read(std::istream& in);
  virtual void _write(std::ostream& out) const { Write(out, _text); }

  // Writes a text that somebody else holds.
  static void Write(std::ostream& out, std::string_view text);

 protected:
  std::string _text;

 private:
  void _read_quote(std::istream& in, int quote);
  void _read_non_quote(std::istream& in);
  void _read_entity(std::istream& in);
};

// An element or attribute name. An entity such as "&query_item;" is a legal one, so that a query can stand in a start
// tag; its ";" ends the name. Reading stops in front of the first character that can't belong to a name, and may
// leave the name empty; writing stops there too.
class XMLName : public XMLString {
 public:
  using XMLString::XMLString;

  void _read(std::istream& in) override;
  void _write(std::ostream& out) const override { Write(out, _text); }

  static void Write(std::ostream& out, std::string_view text);
};

inline std::istream& operator>>(std::istream& in, XMLString& text) {
  text._read(in);
  return in;
}

inline std::ostream& operator<<(std::ostream& out, const XMLString& text) {
  text._write(out);
  return out;
}
