// What the sentences of serial instruments have in common: comma-delimited fields, and a closing checksum of two
// hexadecimal digits (NMEA 0183).
//
// Nothing here allocates on well-formed text, looks at a locale or throws. Any thread.

#pragma once

#include <cstdint>
#include <string_view>

// Fields, read from the front of a text that outlives the stream. It counts as a formatted input stream of the classic
// locale does, white space skipping, ranges and failure included, at a fraction of its cost.
class FieldStream {
 public:
  explicit FieldStream(std::string_view text) : _at(text.data()), _end(text.data() + text.size()) {}

  // A field was no value of its kind, or the text ended where a value or the delimiter behind one had to come. For
  // good.
  bool fail() const { return _failed; }

 private:
  friend double GPSReadDouble(FieldStream& fields);
  friend char GPSReadChar(FieldStream& fields);
  friend uint32_t GPSReadUnsigned(FieldStream& fields);
  friend int32_t GPSReadInteger(FieldStream& fields);

  bool _Begin();
  void _End();
  template <class Number>
  Number _Take(Number (*take)(std::string_view& text, bool& failed));

  const char* _at;
  const char* const _end;
  bool _failed = false;
};

// Each takes one field and the delimiter behind it, whatever that is. The default comes back, and stays cheap, for an
// empty field, once the stream has failed, and for every field from a "*" on, which is never passed.
double GPSReadDouble(FieldStream& fields);      // 0
char GPSReadChar(FieldStream& fields);          // the space character
uint32_t GPSReadUnsigned(FieldStream& fields);  // 0; a negative number wraps
int32_t GPSReadInteger(FieldStream& fields);    // 0

// The sum of all bytes, by exclusive-or.
unsigned char ExclusiveOr(std::string_view bytes);

// Whether the two hexadecimal digits that close a sentence are the exclusive-or of what stands between its first byte
// and the one before the digits, both excluded. Digits are converted by their code alone, in either case; no character
// is rejected as one.
bool ChecksumAgrees(std::string_view sentence);
