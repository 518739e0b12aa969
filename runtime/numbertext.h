// Numbers out of text, by the rules of a formatted input stream of the classic locale and at a fraction of its cost:
// they are taken off the front of the text, as far as characters of a number go, and what follows stays.
//
// White space in front is not skipped. `failed` is set when there was no number, or one that its type can't hold; it is
// never cleared. The value is then 0, or the limit that the number is beyond.
//
// Nothing here throws, and well-formed text allocates nothing. Any thread.

#pragma once

#include <cstdint>
#include <string_view>

// Neither "inf" nor "nan" is a number. One too small for a double is 0 or nearly so, and no failure.
double TakeDouble(std::string_view& text, bool& failed);
int32_t TakeInteger(std::string_view& text, bool& failed);
// A negative number wraps, as far as its amount fits.
uint32_t TakeUnsigned(std::string_view& text, bool& failed);
