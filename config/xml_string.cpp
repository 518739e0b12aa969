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

// Of one of the five.
std::string_view EntityFor(char character) {
  const Entity* entity = kEntities;
  while (entity->character != character) ++entity;
  return entity->text;
}

void WritePlain(std::ostream& out, std::string_view text) {
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace

void eatwhite(std::istream& in) {
  if (!in.good()) return;
  CharReader(in).SkipWhile([](int c) { return xml::Is(c, xml::kSpace); });
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
  const auto is_plain = [quote](int c) { return c != quote && c != '<' && c != '>' && c != '&'; };
  int c = reader.TakeWhile(_text, is_plain);
  while (c == '&') {
    _read_entity(in);
    c = reader.TakeWhile(_text, is_plain);
  }
  if (c == quote) reader.Skip();
}

void XMLString::_read_non_quote(std::istream& in) {
  CharReader reader(in);
  const auto is_plain = [](int c) { return !xml::Is(c, xml::kMarkup | xml::kAmpersand); };
  while (reader.TakeWhile(_text, is_plain) == '&') _read_entity(in);
  while (!_text.empty() && xml::Is(_text.back(), xml::kSpace)) _text.pop_back();
}

// At "&". White space that cuts an entity short is lost with it; that is how the dialect is.
void XMLString::_read_entity(std::istream& in) {
  CharReader reader(in);
  const std::size_t start = _text.size();
  _text.push_back('&');
  reader.Skip();
  const int end = reader.TakeWhile(
      _text, [](int c) { return c != ';' && !xml::Is(c, xml::kSpace | xml::kMarkup | xml::kAmpersand); });
  if (end == CharReader::kEnd) return;
  if (xml::Is(end, xml::kSpace)) return reader.Skip();
  if (end != ';') return;
  reader.Skip();
  _text.push_back(';');
  for (const Entity& entity : kEntities)
    if (_text.compare(start, std::string::npos, entity.text) == 0) {
      _text.replace(start, std::string::npos, 1, entity.character);
      return;
    }
}

void XMLString::Write(std::ostream& out, std::string_view text) {
  std::size_t written = 0;
  for (std::size_t i = text.find_first_of(kWrittenAsEntity); i != std::string_view::npos;
       i = text.find_first_of(kWrittenAsEntity, i + 1)) {
    if (text[i] == '&' && OpensEntity(text, i)) continue;
    WritePlain(out, text.substr(written, i - written));
    WritePlain(out, EntityFor(text[i]));
    written = i + 1;
  }
  WritePlain(out, text.substr(written));
}

void XMLName::_read(std::istream& in) {
  _text.clear();
  if (!in.good()) {
    in.setstate(std::ios_base::failbit);
    return;
  }
  CharReader reader(in);
  const int first = reader.Peek();
  if (first == CharReader::kEnd) return in.setstate(std::ios_base::failbit);
  if (!xml::Is(first, xml::kNameStart)) return;
  reader.Skip();
  _text.push_back(static_cast<char>(first));
  if (reader.TakeWhile(_text, [](int c) { return xml::Is(c, xml::kName); }) == ';') {
    reader.Skip();
    _text.push_back(';');
  }
}

void XMLName::Write(std::ostream& out, std::string_view text) {
  if (text.empty() || !xml::Is(text[0], xml::kNameStart)) return;
  std::size_t length = 1;
  while (length < text.size() && xml::Is(text[length], xml::kName)) ++length;
  if (length < text.size() && text[length] == ';') ++length;
  WritePlain(out, text.substr(0, length));
}
