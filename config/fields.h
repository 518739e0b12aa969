// Whole numbers with a separator between each two, as dates and times are written: "2024-03-01", "12:00:00".
//
// Internal to the items that hold such texts.

#pragma once

#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <string>

// White space in front of a number or a separator is passed over. Another character in a separator's place fails like a
// field that is no number: the result is false, and the stream failed.
bool ReadFields(std::istream& in, char separator, std::initializer_list<int*> fields);

struct Field {
  std::int64_t value;
  int width;  // at least so many digits
};

std::string WrittenFields(char separator, std::initializer_list<Field> fields);
