// A check for CLI11: a whole number in base ten, as by itself CLI11 takes a leading zero for base eight.

#pragma once

#include <CLI/CLI.hpp>
#include <charconv>
#include <string>
#include <system_error>

// From `least` to `most`; for transform, as the text becomes the plain one.
inline CLI::Validator WholeNumber(int least, int most) {
  const auto check = [least, most](std::string& text) -> std::string {
    int value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || value < least || value > most)
      return "'" + text + "' is not a whole number from " + std::to_string(least) + " to " + std::to_string(most);
    text = std::to_string(value);
    return "";
  };
  return {check, ""};
}

// For the help.
inline std::string WholeNumberName(int least, int most) {
  return "N (" + std::to_string(least) + " to " + std::to_string(most) + ")";
}
