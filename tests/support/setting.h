// What an environment variable asks of a long run: how long it is, and its seed. script/soak sets them.

#pragma once

#include <cstdlib>

inline int Setting(const char* name, int usual) {
  const char* const text = std::getenv(name);
  return text == nullptr ? usual : std::atoi(text);
}
