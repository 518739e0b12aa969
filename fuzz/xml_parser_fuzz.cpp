// Any bytes into the text layer, each class beside a plain second form that works on the whole text: the same tokens,
// the same bytes left unread behind each, the same again on a replay and from a stream that hands out single bytes.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "config/xml_parser.h"
#include "config/xml_string.h"
#include "fuzz/translated.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

constexpr std::string_view kWhite = " \t\n\v\f\r";
constexpr std::string_view kQuoteOrAngle = "<>\"'";
constexpr std::string_view kNameStart = "&_:0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view kName = "-._:;0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

bool Among(std::string_view set, char c) {
  return set.find(c) != std::string_view::npos;
}

struct Token {
  XMLParser::TokenKind kind;
  std::string string = {};
  std::string value = {};
  bool operator==(const Token&) const = default;
};

class Plain {
 public:
  explicit Plain(std::string_view text) : _text(text) {}

  std::string_view Unread() const { return _text.substr(_at); }

  std::string Name() {
    const std::size_t start = _at;
    if (!_ended() && Among(kNameStart, _text[_at])) ++_at;
    while (_at > start && !_ended() && Among(kName, _text[_at]))
      if (_text[_at++] == ';') break;
    return std::string(_text.substr(start, _at - start));
  }

  std::string String() {
    _white();
    if (_ended() || Among("<>", _text[_at])) return "";
    const char quote = Among("\"'", _text[_at]) ? _text[_at++] : '\0';
    std::string read;
    std::size_t kept = 0;
    while (!_ended() && !Among("<>", _text[_at])) {
      const char c = _text[_at];
      if (quote == '\0' ? Among("\"'", c) : c == quote) break;
      read += c == '&' ? _entity() : std::string(1, _text[_at++]);
      if (quote != '\0' || !Among(kWhite, c)) kept = read.size();
    }
    if (quote != '\0' && !_ended() && _text[_at] == quote) ++_at;
    return read.substr(0, kept);
  }

  Token Next() {
    _white();
    return _in_tag ? _inside() : _outside();
  }

  // The token at which the recovery ends.
  Token Recovered() {
    for (int depth = 1;;) {
      const Token token = Next();
      if (token.kind == XMLParser::START_ELEMENT) ++depth;
      if (token.kind == XMLParser::END_ELEMENT) --depth;
      if (token.kind == XMLParser::END_DOC || depth == 0) return token;
    }
  }

 private:
  bool _ended() const { return _at == _text.size(); }
  void _white() { _at = std::min(_text.find_first_not_of(kWhite, _at), _text.size()); }
  static Token _error(const char* message) { return {XMLParser::ERROR, message}; }

  std::string _entity() {
    const std::size_t start = _at++;
    while (!_ended() && _text[_at] != ';' && !Among(kQuoteOrAngle, _text[_at]) && !Among("& \t\n\v\f\r", _text[_at]))
      ++_at;
    const std::string name(_text.substr(start, _at - start));
    if (_ended() || Among(kQuoteOrAngle, _text[_at]) || _text[_at] == '&') return name;
    if (_text[_at++] != ';') return name;  // white space goes with it
    return name == "&lt"     ? "<"
           : name == "&gt"   ? ">"
           : name == "&quot" ? "\""
           : name == "&apos" ? "'"
           : name == "&amp"  ? "&"
                             : name + ";";
  }

  // False when one of them doesn't end.
  bool _skip_meta() {
    for (;;) {
      const std::string_view rest = Unread();
      if (!rest.starts_with("<?") && !rest.starts_with("<!")) return true;
      const bool comment = rest.starts_with("<!-");
      const std::string_view end = comment ? "-->" : rest[1] == '?' ? "?>" : ">";
      const std::size_t found = rest.find(end, comment ? 3 : 2);
      _at = found == std::string_view::npos ? _text.size() : _at + found + end.size();
      if (found == std::string_view::npos) return false;
    }
  }

  Token _outside() {
    if (!_skip_meta() || _ended()) return {XMLParser::END_DOC};
    if (_text[_at] == '>') return ++_at, _error("Invalid '>' character outside XML tags");
    if (_text[_at] != '<') return {XMLParser::STRING, String()};
    if (++_at; _ended()) return {XMLParser::END_DOC};
    if (_text[_at] == '/') {
      ++_at;
      const std::string name = Name();
      if (_ended()) return {XMLParser::END_DOC};
      const char end = _text[_at++];
      if (name.empty()) return _error("Empty XML tag name");
      return end == '>' ? Token{XMLParser::END_ELEMENT, name} : _error("Invalid XML tag end sequence");
    }
    const std::string name = Name();
    if (name.empty()) return _error("Empty XML tag name");
    _element = name;
    _in_tag = true;
    return {XMLParser::START_ELEMENT, name};
  }

  Token _inside() {
    if (_ended()) return {XMLParser::END_DOC};
    if (_text[_at] == '<') return ++_at, _error("Cannot start new element inside start tag");
    if (_text[_at] == '>') {
      ++_at;
      _in_tag = false;
      return _outside();
    }
    if (_text[_at] == '/') {
      if (++_at; _ended()) return {XMLParser::END_DOC};
      if (_text[_at++] != '>') return _error("Invalid XML tag end sequence");
      _in_tag = false;
      return {XMLParser::END_ELEMENT, _element};
    }
    const std::string name = Name();
    if (_ended()) return {XMLParser::END_DOC};
    if (name.empty()) return ++_at, _error("Empty XML tag name");
    if (_text[_at] != '=') return {XMLParser::ATTRIBUTE, name};
    ++_at;
    return {XMLParser::ATTRIBUTE_VALUE_PAIR, name, String()};
  }

  std::string_view _text;
  std::size_t _at = 0;
  std::string _element;
  bool _in_tag = false;
};

Token Current(const XMLParser& parser) {
  return {parser.GetCurrToken(), parser.GetTokenString(), parser.GetTokenValue()};
}

// All tokens from here on. An error is recovered from, as a composite does that gives up one child.
std::vector<Token> TokensFrom(XMLParser& parser) {
  std::vector<Token> tokens;
  do {
    parser.GetNextToken();
    tokens.push_back(Current(parser));
    if (parser.GetCurrToken() != XMLParser::ERROR) continue;
    parser.RecoverFromError();
    tokens.push_back(Current(parser));
  } while (parser.GetCurrToken() != XMLParser::END_DOC);
  return tokens;
}

class SingleBytes : public std::streambuf {
 public:
  explicit SingleBytes(std::string_view text) : _text(text) {}

 private:
  int underflow() override { return _at < _text.size() ? static_cast<unsigned char>(_text[_at]) : traits_type::eof(); }
  int uflow() override { return _at < _text.size() ? static_cast<unsigned char>(_text[_at++]) : traits_type::eof(); }

  std::string_view _text;
  std::size_t _at = 0;
};

void CheckTokens(const std::string& text) {
  std::istringstream in(text);
  XMLParser parser(in);
  Plain plain(text);
  const auto start = parser.GetPosition();
  Require(parser.GetNextToken() == XMLParser::START_DOC);
  std::vector<Token> tokens{Current(parser)};
  std::size_t marked = 0;  // how many tokens there are up to the mark
  const auto same = [&](Token token) {
    Require(Current(parser) == token);
    Require(in.rdbuf()->in_avail() == static_cast<std::streamsize>(plain.Unread().size()));
    tokens.push_back(std::move(token));
    const auto kind = tokens.back().kind;
    if (kind == XMLParser::ERROR || kind == XMLParser::END_DOC || tokens.size() != text.size() % 8) return;
    parser.MarkCurrToken();
    marked = tokens.size();
  };
  while (parser.GetCurrToken() != XMLParser::END_DOC) {
    parser.GetNextToken();
    same(plain.Next());
    if (parser.GetCurrToken() != XMLParser::ERROR) {
      parser.PutBackToken();
      Require(parser.GetNextToken() == tokens.back().kind && Current(parser) == tokens.back());
      continue;
    }
    Require(in.fail() && parser.GetNextToken() == XMLParser::ERROR);
    parser.RecoverFromError();
    same(plain.Recovered());
  }
  parser.SetPosition(start);
  Require(TokensFrom(parser) == tokens);
  parser.GotoMarkedToken();
  Require(TokensFrom(parser) == std::vector<Token>(tokens.begin() + static_cast<std::ptrdiff_t>(marked), tokens.end()));

  SingleBytes bytes(text);
  std::istream slow(&bytes);
  XMLParser again(slow);
  Require(TokensFrom(again) == tokens);
}

template <class Text>
void CheckRead(const std::string& text, const std::string& read, const Plain& plain) {
  std::istringstream in(text);
  Text told(read + "old");
  in >> told;
  Require(told.get() == read);
  Require(in.rdbuf()->in_avail() == static_cast<std::streamsize>(plain.Unread().size()));
}

void CheckTexts(const std::string& text) {
  Plain name(text), string(text);
  const std::string read = name.Name();
  CheckRead<XMLName>(text, read, name);
  CheckRead<XMLString>(text, string.String(), string);
  std::ostringstream names, strings;
  names << XMLName(text);
  strings << XMLString(text);
  Require(names.str() == read);
  Require(strings.str() == Translated(text));
}

// The pieces, put together, are the text; and none could be cut further.
void CheckPieces(const std::string& text) {
  const auto has_query = [&](std::size_t from, std::size_t size) {
    const std::size_t query = text.find("&query", from);
    return query < from + size && text.find(';', query) != std::string::npos;
  };
  const std::string_view known[] = {"&query_item;",         "&query;&query_context;",
                                    "&query_changes_item;", "&query_changes;&query_changes_context;",
                                    "&query_doctype_item;", "&query_doctype;&query_doctype_context;"};
  XMLQueryStringParser pieces(text);
  Require(pieces.GetNextToken() == XMLQueryStringParser::START_STRING);
  std::size_t at = 0;
  for (;;) {
    const auto kind = pieces.GetNextToken();
    const std::string piece = pieces.GetTokenString();
    pieces.PutBackToken();
    Require(pieces.GetNextToken() == kind && pieces.GetCurrToken() == kind && pieces.GetTokenString() == piece);
    if (kind == XMLQueryStringParser::END_STRING) break;
    const bool braced = kind == XMLQueryStringParser::DOCTYPE;
    const std::string whole = braced ? "{" + piece + "}" : piece;
    Require(text.compare(at, whole.size(), whole) == 0);
    if (braced || kind == XMLQueryStringParser::STRING) {
      Require(!has_query(at, whole.size()));
      Require(braced == (whole.size() > 1 && whole.front() == '{' && whole.back() == '}'));
      Require(at + whole.size() == text.size() || has_query(at + whole.size(), 1));
    } else {
      Require(piece.starts_with("&query") && piece.find(';') == piece.size() - 1);
      const auto* const list = std::find_if(std::begin(known), std::end(known), [&](std::string_view names) {
        return names.find(piece) != std::string_view::npos;
      });
      Require(kind == (list == std::end(known) ? int{XMLQueryStringParser::ERROR} : static_cast<int>(list - known)));
    }
    at += whole.size();
  }
  Require(at == text.size() && pieces.GetTokenString().empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  CheckTokens(text);
  CheckTexts(text);
  CheckPieces(text);
  return 0;
}
