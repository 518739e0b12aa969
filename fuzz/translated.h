// A text as it is written into a document: a plain second form of XMLString's.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

inline std::string Translated(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::size_t end = text.find_first_of(";&<>\"' \t\n\v\f\r", i + 1);
    const bool entity = end != std::string_view::npos && text[end] == ';' && end > i + 1;
    switch (text[i]) {
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&apos;";
        break;
      case '&':
        out += entity ? "&" : "&amp;";
        break;
      default:
        out += text[i];
    }
  }
  return out;
}
