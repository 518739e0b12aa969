#include "config/xml_parser.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

#include "config/xml_chars.h"

namespace {

using xml::CharReader;

constexpr const char* kEmptyName = "Empty XML tag name";
constexpr const char* kBadEnd = "Invalid XML tag end sequence";
constexpr const char* kStrayEnd = "Invalid '>' character outside XML tags";
constexpr const char* kNestedStart = "Cannot start new element inside start tag";

constexpr std::uint32_t kLongestText = (1U << 29) - 1;

struct Query {
  std::string_view text;
  XMLQueryStringParser::QueryTokenKind kind;
};

constexpr Query kQueries[] = {
    {"&query;", XMLQueryStringParser::QUERY_CONTEXT},
    {"&query_context;", XMLQueryStringParser::QUERY_CONTEXT},
    {"&query_changes;", XMLQueryStringParser::QUERY_CHANGES_CONTEXT},
    {"&query_changes_context;", XMLQueryStringParser::QUERY_CHANGES_CONTEXT},
    {"&query_doctype;", XMLQueryStringParser::QUERY_DOCTYPE_CONTEXT},
    {"&query_doctype_context;", XMLQueryStringParser::QUERY_DOCTYPE_CONTEXT},
    {"&query_item;", XMLQueryStringParser::QUERY},
    {"&query_changes_item;", XMLQueryStringParser::QUERY_CHANGES},
    {"&query_doctype_item;", XMLQueryStringParser::QUERY_DOCTYPE},
};

// Takes characters up to and including the given sequence; false when the stream runs out first.
bool SkipPast(CharReader& reader, std::string_view sequence) {
  std::size_t matched = 0;
  while (matched < sequence.size()) {
    const int c = reader.Get();
    if (c == CharReader::kEnd) return false;
    if (c == sequence[matched]) {
      ++matched;
    } else if (c == sequence[0]) {
      // A run of its first character keeps "--" of "-->" matched, however long it is.
      matched = matched == 2 && sequence[1] == sequence[0] ? 2 : 1;
    } else {
      matched = 0;
    }
  }
  return true;
}

}  // namespace

XMLParser::XMLParser(std::istream& in) : _in(in) {
  // Twice, so that the first GetNextToken answers START_DOC and stepping back is legal right after it.
  _tokens.assign(2, TokenInfo{"", 0, 0, START_DOC});
}

XMLParser::TokenKind XMLParser::GetNextToken() {
  return GetCurrToken() == ERROR ? ERROR : _step();
}

void XMLParser::PutBackToken() {
  if (_current > 0) --_current;
}

void XMLParser::RecoverFromError() {
  _recover_state();
  for (std::size_t depth = 1;;) switch (_step()) {
      case START_ELEMENT:
        ++depth;
        break;
      case END_ELEMENT:
        if (--depth == 0) return;
        break;
      case END_DOC:
        return;
      case ERROR:
        if (_in.bad()) return;  // a broken stream never comes to an end
        _recover_state();
        break;
      default:
        break;
    }
}

// An ERROR that is the current token needs no step of its own: _step leaves it behind, stored or fresh.
void XMLParser::_recover_state() {
  _in.clear();
}

XMLParser::TokenKind XMLParser::_step() {
  if (_current + 1 == _tokens.size()) advanceToken();
  ++_current;
  return GetCurrToken();
}

void XMLParser::advanceToken() {
  _fresh = TokenInfo{"", 0, 0, ERROR};
  try {
    if (_in.fail()) {
      _fresh.kind = parseEndDoc();
    } else {
      eatwhite(_in);
      _fresh.kind = _in_start_tag ? parseInStartElement() : parseOutsideStartElement();
    }
  } catch (const std::bad_alloc&) {
    throw;
  } catch (...) {  // out of the stream's buffer, mostly; an istream answers with the badbit
    _fresh = TokenInfo{"", 0, 0, ERROR};
    _in.setstate(std::ios_base::badbit);
  }
  _tokens.push_back(_fresh);
}

XMLParser::TokenKind XMLParser::parseOutsideStartElement() {
  CharReader reader(_in);
  const int first = getAndEatMeta();
  if (first == CharReader::kEnd) return parseEndDoc();
  if (first == '>') {
    reader.Skip();
    return setErrorState(kStrayEnd);
  }
  if (first != '<') {
    _string._read(_in);
    _keep(_string.get());
    return STRING;
  }

  const int second = reader.Peek();
  if (second == CharReader::kEnd) return parseEndDoc();
  if (second == '/') {
    reader.Skip();
    _name._read(_in);
    const int end = reader.Get();
    if (end == CharReader::kEnd) return parseEndDoc();
    if (_name.get().empty()) return setErrorState(kEmptyName);
    if (end != '>') return setErrorState(kBadEnd);
    _keep(_name.get());
    return END_ELEMENT;
  }
  _name._read(_in);
  if (_name.get().empty()) return setErrorState(kEmptyName);
  _keep(_name.get());
  _element_name = _fresh;
  _in_start_tag = true;
  return START_ELEMENT;
}

XMLParser::TokenKind XMLParser::parseInStartElement() {
  CharReader reader(_in);
  switch (reader.Peek()) {
    case CharReader::kEnd:
      return parseEndDoc();
    case '<':
      reader.Skip();
      return setErrorState(kNestedStart);
    case '>':
      reader.Skip();
      _in_start_tag = false;
      return parseOutsideStartElement();
    case '/': {
      reader.Skip();
      const int end = reader.Get();
      if (end == CharReader::kEnd) return parseEndDoc();
      if (end != '>') return setErrorState(kBadEnd);
      _in_start_tag = false;
      _fresh = _element_name;
      return END_ELEMENT;
    }
    default:
      break;
  }

  _name._read(_in);
  const int end = reader.Peek();
  if (end == CharReader::kEnd) return parseEndDoc();
  if (_name.get().empty()) {
    reader.Skip();
    return setErrorState(kEmptyName);
  }
  if (end != '=') {
    _keep(_name.get());
    return ATTRIBUTE;
  }
  reader.Skip();
  _string._read(_in);
  _keep(_name.get(), _string.get());
  return ATTRIBUTE_VALUE_PAIR;
}

// What a read that ran out of characters means.
XMLParser::TokenKind XMLParser::parseEndDoc() {
  _in.setstate(std::ios_base::failbit);
  return _in.eof() ? END_DOC : ERROR;
}

XMLParser::TokenKind XMLParser::setErrorState(const char* message) {
  _in.setstate(std::ios_base::failbit);
  _fresh.text = message;
  _fresh.string_size = static_cast<std::uint32_t>(std::string_view(message).size());
  return ERROR;
}

// The next character that is not part of a "<?...>" or "<!...>" construct. "<" has been taken; any other one is left
// in place. White space between such constructs is not skipped: it makes an empty text.
int XMLParser::getAndEatMeta() {
  CharReader reader(_in);
  for (;;) {
    const int c = reader.Peek();
    if (c != '<') return c;
    const int opening = reader.Next();
    if (opening != '?' && opening != '!') return c;
    if (!_skip_meta(opening)) return CharReader::kEnd;
  }
}

// At the "?" or "!". A comment starts with "<!-" already, though it ends with "-->".
bool XMLParser::_skip_meta(int opening) {
  CharReader reader(_in);
  const int c = reader.Next();
  if (opening == '?') return SkipPast(reader, "?>");
  if (c != '-') return SkipPast(reader, ">");
  reader.Skip();
  return SkipPast(reader, "-->");
}

// Gives the fresh token its texts, in memory that lasts as long as the parser.
void XMLParser::_keep(std::string_view string, std::string_view value) {
  if (std::max(string.size(), value.size()) > kLongestText) throw std::length_error("text too long");
  if (string.empty() && value.empty()) return;
  char* const place = static_cast<char*>(_texts.allocate(string.size() + value.size(), 1));
  std::copy(value.begin(), value.end(), std::copy(string.begin(), string.end(), place));
  _fresh.text = place;
  _fresh.string_size = static_cast<std::uint32_t>(string.size());
  _fresh.value_size = static_cast<std::uint32_t>(value.size()) & kLongestText;
}

XMLQueryStringParser::XMLQueryStringParser(std::string text) : _text(std::move(text)) {}

XMLQueryStringParser::QueryTokenKind XMLQueryStringParser::GetNextToken() {
  if (_put_back) {
    _put_back = false;
    return _kind;
  }
  _token.clear();
  if (_position >= _text.size()) return _kind = END_STRING;

  const std::size_t query = _text.find("&query", _position);
  const std::size_t end = query == std::string::npos ? query : _text.find(';', query);
  if (end == std::string::npos) {
    _token = _text.substr(_position);
    _position = _text.size();
  } else if (query > _position) {
    _token = _text.substr(_position, query - _position);
    _position = query;
  } else {
    _token = _text.substr(query, end + 1 - query);
    _position = end + 1;
    const auto known = std::find_if(std::begin(kQueries), std::end(kQueries),
                                    [this](const Query& candidate) { return candidate.text == _token; });
    return _kind = known == std::end(kQueries) ? ERROR : known->kind;
  }

  if (_token.size() < 2 || _token.front() != '{' || _token.back() != '}') return _kind = STRING;
  _token = _token.substr(1, _token.size() - 2);
  return _kind = DOCTYPE;
}
