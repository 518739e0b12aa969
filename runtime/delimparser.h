// Cuts a stream of bytes that arrives in chunks of any size into records that end with a delimiter, or into blocks of
// a given size. Every network and serial protocol of this system is cut here.
//
// Bytes are put in with AppendRawData and taken, oldest first, with one of the Get operations; these may be mixed
// freely. A record keeps its delimiter. What has no delimiter yet stays, however long it grows: a peer that must not
// fill the memory has to be limited by the caller.
//
// Cost: each byte is searched once for each delimiter, however it was cut into chunks and however long a record stays
// incomplete, and no more bytes are ever moved up than were taken. One thread; copies are independent.

#pragma once

#include <string>
#include <vector>

class DelimParser {
 public:
  DelimParser() = default;
  explicit DelimParser(const std::string& delimiter);

  // Delimiters added first win a tie. An empty one is listed but never matches.
  void AddDelimiter(const std::string& delimiter);

  void AppendRawData(const std::string& data);
  void AppendRawData(const std::vector<char>& data);

  // Drops what was not taken. An expected block stays expected.
  void ClearRawData();

  // The next record: up to and including the delimiter that stands first. False, and nothing changed, when there is
  // none. The second form also tells the delimiter; on the single line feed it is set even where there is no record.
  bool GetNextDelimString(std::string& out);
  bool GetNextDelimString(std::string& out, std::string& delimiter);

  // The text up to and including the first `end`, whatever the delimiters are. False, and nothing changed, when there
  // is none.
  bool GetNextStringToEOL(std::string& out, char end);

  // The next `size` bytes are one block for GetNextStringOrBLOB. 0: no block, a line is next. It may be called between
  // two takes, so also while a record is being handled; bytes already held count.
  void ExpectBLOB(unsigned int size);

  // The block, when one is expected and all of it is there; otherwise the next line with its line feed. `isBLOB` tells
  // which of the two was looked for, also when false is returned.
  bool GetNextStringOrBLOB(std::string& out, bool& isBLOB);

 private:
  // What to look for, and how far that was done: it starts nowhere in the untaken bytes before `searched`.
  struct Delimiter {
    std::string text;
    size_t searched = 0;
  };

  void _Append(const char* data, size_t size);
  size_t _Find(Delimiter& delimiter);
  void _Take(std::string& out, size_t size);

  std::vector<Delimiter> _delimiters;
  std::string _raw;
  bool _line = false;          // the only delimiter is one line feed
  unsigned int _expected = 0;  // size of the block, in bytes

  size_t _taken = 0;        // bytes at the front of _raw that have been taken
  char _end = '\n';         // the last one that GetNextStringToEOL did not find,
  size_t _endSearched = 0;  // and how far it had looked
};
