// Any bytes into the tokenizer: it comes to an end, a replay gives the same tokens, and recovery moves on.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "config/xml_parser.h"

namespace {

struct Token {
  XMLParser::TokenKind kind;
  std::string string;
  std::string value;
  bool operator==(const Token&) const = default;
};

std::vector<Token> ReadToTheEnd(XMLParser& parser) {
  std::vector<Token> tokens;
  do {
    parser.GetNextToken();
    tokens.push_back({parser.GetCurrToken(), parser.GetTokenString(), parser.GetTokenValue()});
    if (parser.GetCurrToken() == XMLParser::ERROR) parser.RecoverFromError();
  } while (parser.GetCurrToken() != XMLParser::END_DOC);
  return tokens;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::istringstream in(text);
  XMLParser parser(in);
  const auto start = parser.GetPosition();
  const auto first = ReadToTheEnd(parser);
  parser.SetPosition(start);
  if (ReadToTheEnd(parser) != first) std::abort();
  if (first.size() > 2 * size + 8) std::abort();

  XMLQueryStringParser pieces(text);
  std::size_t total = 0;
  while (pieces.GetNextToken() != XMLQueryStringParser::END_STRING) total += pieces.GetTokenString().size();
  if (total > size) std::abort();
  return 0;
}
