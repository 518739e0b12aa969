// The sum that closes a data line: all bytes up to and including the tab before it, modulo 256, in decimal and
// right-aligned in a field of three characters; then a line feed.
//
// Nothing here throws. Any thread.

#pragma once

#include <string>
#include <string_view>

// Of all bytes, each taken as unsigned: 0 to 255.
unsigned int CheckSum(std::string_view bytes);

// The number in the three bytes before the last one, whatever that is: blanks in front are skipped, and what follows
// the number counts for nothing. 0 where there is none.
int ReadCheckSum(std::string_view line);

// Whether a line says its own sum. One of fewer than four bytes has none to say.
bool CheckSumAgrees(std::string_view line);

// Closes a line that ends in its last tab.
void AppendCheckSum(std::string& line);
