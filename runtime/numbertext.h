// Numbers out of text and into it, by the rules of the formatted streams of the classic locale and at a fraction of
// their cost.
//
// Taking: numbers are taken off the front of a text, as far as characters of a number go, and what follows stays.
// White space in front is not skipped. `failed` is set when there was no number, or one that its type can't hold; it is
// never cleared. The value is then 0, or the limit that the number is beyond.
//
// Nothing here throws by itself, and short or well-formed text allocates nothing. Any thread.

#pragma once

#include <cstdint>
#include <streambuf>
#include <string>
#include <string_view>

// Neither "inf" nor "nan" is a number. One too small for the type is 0 or nearly so, and no failure.
double TakeDouble(std::string_view& text, bool& failed);
float TakeFloat(std::string_view& text, bool& failed);  // rounded once, from the text
// A double from text that comes bit by bit: one character is looked at behind the last one taken.
double TakeDouble(std::streambuf& text, bool& failed);
int32_t TakeInteger(std::string_view& text, bool& failed);
// A negative number wraps, as far as its amount fits.
uint32_t TakeUnsigned(std::string_view& text, bool& failed);

// In decimal; with zeros in front where there are fewer than `width` digits, a "-" not counted.
void AppendInteger(std::string& text, int64_t value, int width = 1);
// With six significant digits: "0.1", "1.5e+06", "-inf". Every NaN is "nan": whether a computed one has a sign depends
// on the board.
void AppendDouble(std::string& text, double value);
