// The two tokenizers of the configuration dialect: one for documents, one for the texts inside them.
//
// The dialect is a small XML subset: no namespaces, no CDATA, no character references, no check of the nesting. What
// stands above sees to the nesting.

#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <istream>
#include <memory_resource>
#include <string>
#include <string_view>

#include "config/xml_string.h"

// A pull tokenizer that keeps every token, so that a stretch of a document can be replayed.
//
// Tokens and their texts live in blocks that the parser owns until it is destroyed: memory grows with the document,
// and replay is free. The stream is not owned, has to outlive the parser, and is never read further than the token
// that was asked for, so that what follows a document stays in it.
//
// Syntax errors never throw. They give an ERROR token with one of four messages and set the stream's failbit; the
// ERROR is then answered again and again until RecoverFromError. A failing stream, and a single text of half a
// gigabyte, give an ERROR without a message and set the badbit. std::bad_alloc goes through.
class XMLParser {
 public:
  enum TokenKind {
    START_ELEMENT,         // string: element name
    END_ELEMENT,           // string: element name, also for "/>"
    ATTRIBUTE,             // string: attribute name
    ATTRIBUTE_VALUE_PAIR,  // string: attribute name, value: its value
    STRING,                // string: the text, entities decoded, surrounding white space gone; may be empty
    START_DOC,
    END_DOC,
    ERROR  // string: the message
  };

  // Small, for a document has many: the value's bytes stand directly behind those of the string.
  struct TokenInfo {
    const char* text;
    std::uint32_t string_size;
    std::uint32_t value_size : 29;  // of an ATTRIBUTE_VALUE_PAIR
    std::uint32_t kind : 3;

    std::string_view string() const { return {text, string_size}; }
    std::string_view value() const { return {text + string_size, value_size}; }
  };

  // A place in the document: valid for the parser that gave it, as long as that lives.
  using Position = std::size_t;

  explicit XMLParser(std::istream& in);
  XMLParser(const XMLParser&) = delete;
  XMLParser& operator=(const XMLParser&) = delete;

  // Moves on by one token, from what is stored or else from the stream, and returns its kind.
  TokenKind GetNextToken();

  TokenKind GetCurrToken() const { return static_cast<TokenKind>(_tokens[_current].kind); }
  const TokenInfo& GetToken() const { return _tokens[_current]; }  // its texts stay as long as the parser
  std::string GetTokenString() const { return std::string(_tokens[_current].string()); }
  std::string GetTokenValue() const { return std::string(_tokens[_current].value()); }

  // Steps one token back; at the first it stays.
  void PutBackToken();

  // One mark, kept by the parser; it starts at the beginning. Who recurses between marking and going back keeps a
  // Position of his own instead.
  void MarkCurrToken() { _marked = _current; }
  void GotoMarkedToken() { _current = _marked; }
  Position GetPosition() const { return _current; }
  void SetPosition(Position position) { _current = position; }

  // Skips to the end of the element that the current token stands in: to its END_ELEMENT, or to END_DOC. Passes over
  // errors on the way, and clears the stream's state bits; on a broken stream it returns at once. The character that
  // caused an error is gone; the text behind it is seen as ordinary tokens.
  void RecoverFromError();

 private:
  TokenKind _step();
  void advanceToken();
  TokenKind parseOutsideStartElement();
  TokenKind parseInStartElement();
  TokenKind parseEndDoc();
  TokenKind setErrorState(const char* message);
  int getAndEatMeta();
  bool _skip_meta(int opening);
  void _recover_state();
  void _keep(std::string_view string, std::string_view value = {});

  std::istream& _in;

  char _first_texts[1024];  // a short document takes none of its texts from the heap
  std::pmr::monotonic_buffer_resource _texts{_first_texts, sizeof _first_texts};
  std::deque<TokenInfo> _tokens;
  Position _current = 0;
  Position _marked = 0;

  TokenInfo _fresh{};          // the token that is being read
  XMLName _name;               // a buffer for names, reused
  XMLString _string;           // a buffer for texts, reused
  TokenInfo _element_name{};   // of the last start tag: "/>" closes that one
  bool _in_start_tag = false;  // between the name of a start tag and its ">" or "/>"
};

// Cuts a text into queries, descriptions in braces, and plain pieces.
class XMLQueryStringParser {
 public:
  enum QueryTokenKind {
    QUERY,                  // "&query_item;"
    QUERY_CONTEXT,          // "&query;", "&query_context;"
    QUERY_CHANGES,          // "&query_changes_item;"
    QUERY_CHANGES_CONTEXT,  // "&query_changes;", "&query_changes_context;"
    QUERY_DOCTYPE,          // "&query_doctype_item;"
    QUERY_DOCTYPE_CONTEXT,  // "&query_doctype;", "&query_doctype_context;"
    STRING,                 // any other piece, white space included
    DOCTYPE,                // a whole piece in braces, without them
    START_STRING,
    END_STRING,
    ERROR  // any other entity that begins "&query"
  };

  explicit XMLQueryStringParser(std::string text);

  // The first call answers START_STRING.
  QueryTokenKind GetNextToken();
  QueryTokenKind GetCurrToken() const { return _kind; }
  const std::string& GetTokenString() const { return _token; }

  // The next GetNextToken answers the same token again.
  void PutBackToken() { _put_back = true; }

 private:
  std::string _text;
  std::size_t _position = 0;
  QueryTokenKind _kind = START_STRING;
  std::string _token;
  bool _put_back = true;
};
