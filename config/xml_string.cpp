#include "config/xml_string.h"

#include <string_view>

#include "config/xml_chars.h"

namespace {

using xml::CharReader;

struct Entity {
  std::string_view text;
  char character;
};

constexpr Entity kEntities[] = {{"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&amp;", '&'}};

constexpr std::string_view kWrittenAsEntity = "<>\"'&";

// Whether the "&" at this position of the text opens an entity: a ";" follows, with at least one character and neither
// white space nor markup nor another "&" before it.
bool OpensEntity(std::string_view text, std::size_t ampersand) {
  for (std::size_t i = ampersand + 1; i < text.size(); ++i) {
    if (text[i] == ';') return i > ampersand + 1;
    if (text[i] == '&' || xml::Is(text[i], xml::kSpace | xml::kMarkup)) return false;
  }
  return false;
}

std::string_view EntityFor(char character) {
  for (const Entity& entity : kEntities)
    if (entity.character == character) return entity.text;
  return {};
}

void Write(std::ostream& out, std::string_view text) {
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace

void eatwhite(std::istream& in) {
  if (!in.good()) return;
  CharReader reader(in);
  for (int c = reader.Peek(); c != CharReader::kEnd && xml::Is(c, xml::kSpace);) c = reader.Next();
}

void XMLString::_read(std::istream& in) {
  _text.clear();
  eatwhite(in);
  if (!in.good()) {
    in.setstate(std::ios_base::failbit);
    return;
  }
  CharReader reader(in);
  const int first = reader.Peek();
  if (first == '"' || first == '\'') {
    reader.Skip();
    _read_quote(in, first);
  } else if (first != '<' && first != '>') {
    _read_non_quote(in);
  }
}

void XMLString::_read_quote(std::istream& in, int quote) {
  CharReader reader(in);
  for (int c = reader.Peek(); c != CharReader::kEnd;) {
    if (c == quote) {
      reader.Skip();
      return;
    }
    if (c == '<' || c == '>') return;
    if (c == '&') {
      _read_entity(in);
      c = reader.Peek();
    } else {
      _text.push_back(static_cast<char>(c));
      c = reader.Next();
    }
  }
}

void XMLString::_read_non_quote(std::istream& in) {
  CharReader reader(in);
  std::size_t kept = 0;  // the length up to the last character that is not white space
  for (int c = reader.Peek(); c != CharReader::kEnd && !xml::Is(c, xml::kMarkup);) {
    if (c == '&') {
      _read_entity(in);
      kept = _text.size();
      c = reader.Peek();
    } else {
      _text.push_back(static_cast<char>(c));
      if (!xml::Is(c, xml::kSpace)) kept = _text.size();
      c = reader.Next();
    }
  }
  _text.resize(kept);
}

// At "&". White space that cuts an entity short is lost with it; that is how the dialect is.
void XMLString::_read_entity(std::istream& in) {
  CharReader reader(in);
  const std::size_t start = _text.size();
  _text.push_back('&');
  for (int c = reader.Next(); c != CharReader::kEnd && c != '&' && !xml::Is(c, xml::kMarkup); c = reader.Next()) {
    if (xml::Is(c, xml::kSpace)) {
      reader.Skip();
      return;
    }
    _text.push_back(static_cast<char>(c));
    if (c != ';') continue;
    reader.Skip();
    const std::string_view collected = std::string_view(_text).substr(start);
    for (const Entity& entity : kEntities)
      if (entity.text == collected) {
        _text.resize(start);
        _text.push_back(entity.character);
        break;
      }
    return;
  }
}

void XMLString::_write(std::ostream& out) const {
  const std::string_view text = _text;
  std::size_t written = 0;
  for (std::size_t i = text.find_first_of(kWrittenAsEntity); i != std::string_view::npos;
       i = text.find_first_of(kWrittenAsEntity, i + 1)) {
    if (text[i] == '&' && OpensEntity(text, i)) continue;
    Write(out, text.substr(written, i - written));
    Write(out, EntityFor(text[i]));
    written = i + 1;
  }
  Write(out, text.substr(written));
}

void XMLName::_read(std::istream& in) {
  _text.clear();
  if (!in.good()) {
    in.setstate(std::ios_base::failbit);
    return;
  }
  CharReader reader(in);
  int c = reader.Peek();
  if (c == CharReader::kEnd || !xml::Is(c, xml::kNameStart)) return;
  do {
    _text.push_back(static_cast<char>(c));
    if (c == ';') {
      reader.Skip();
      return;
    }
    c = reader.Next();
  } while (c != CharReader::kEnd && xml::Is(c, xml::kName));
}

void XMLName::_write(std::ostream& out) const {
  const std::string_view text = _text;
  if (text.empty() || !xml::Is(text[0], xml::kNameStart)) return;
  std::size_t length = 1;
  while (length < text.size() && xml::Is(text[length], xml::kName))
    if (text[length++] == ';') break;
  Write(out, text.substr(0, length));
}
