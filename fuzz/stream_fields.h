// The fields of serial instruments by the standard library's formatted input, which the system's own field readers
// promise to equal.

#pragma once

#include <cstdint>
#include <istream>

template <class Value>
Value ReadField(std::istream& in, Value value) {
  if (in.fail()) return value;
  const int next = in.peek();
  if (next == ',') {
    in.get();
  } else if (next != '*') {
    in >> value;
    in.get();
  }
  return value;
}
inline double ReadDouble(std::istream& in) {
  return ReadField(in, 0.0);
}
inline char ReadChar(std::istream& in) {
  return ReadField(in, ' ');
}
inline uint32_t ReadUnsigned(std::istream& in) {
  return ReadField(in, uint32_t{0});
}
inline int32_t ReadInteger(std::istream& in) {
  return ReadField(in, int32_t{0});
}

// Of a checksum, by its code alone.
inline int HexDigit(unsigned char c) {
  return c - (c < 'A' ? '0' : (c < 'a' ? 'A' : 'a') - 10);
}
