#include "runtime/delimparser.h"

#include <algorithm>
#include <cstring>

DelimParser::DelimParser(const std::string& delimiter) {
  AddDelimiter(delimiter);
}

void DelimParser::AddDelimiter(const std::string& delimiter) {
  _delimiters.push_back({delimiter, 0});
  _line = _delimiters.size() == 1 && delimiter == "\n";
}

void DelimParser::AppendRawData(const std::string& data) {
  _Append(data.data(), data.size());
}

void DelimParser::AppendRawData(const std::vector<char>& data) {
  _Append(data.data(), data.size());
}

void DelimParser::_Append(const char* data, size_t size) {
  // Taken bytes go when they outnumber those that have to be moved for it.
  if (_taken > _raw.size() - _taken) {
    _raw.erase(0, _taken);
    for (Delimiter& delimiter : _delimiters) delimiter.searched -= std::min(delimiter.searched, _taken);
    _endSearched -= std::min(_endSearched, _taken);
    _taken = 0;
  }
  _raw.append(data, size);
}

void DelimParser::ClearRawData() {
  _taken = _raw.size();
}

// Where the delimiter starts first in the untaken bytes, npos if it doesn't. Goes on where the last search ended.
size_t DelimParser::_Find(Delimiter& delimiter) {
  delimiter.searched = std::max(delimiter.searched, _taken);
  const size_t found = _raw.find(delimiter.text, delimiter.searched);
  if (found != std::string::npos)
    delimiter.searched = found;
  else if (_raw.size() >= delimiter.searched + delimiter.text.size())
    delimiter.searched = _raw.size() + 1 - delimiter.text.size();  // behind this it may have begun
  return found;
}

// Only a step forward: moving the rest up for every record would cost the square of a large chunk.
void DelimParser::_Take(std::string& out, size_t size) {
  out.resize(size);  // assign would look for an overlap first, which takes a fifth of the time of a short line
  std::memcpy(out.data(), _raw.data() + _taken, size);
  _taken += size;
}

bool DelimParser::GetNextDelimString(std::string& out) {
  if (_line) return GetNextStringToEOL(out, '\n');
  std::string delimiter;
  return GetNextDelimString(out, delimiter);
}

bool DelimParser::GetNextDelimString(std::string& out, std::string& delimiter) {
  if (_line) {
    delimiter = '\n';
    return GetNextStringToEOL(out, '\n');
  }
  size_t first = std::string::npos;
  const Delimiter* winner = nullptr;
  for (Delimiter& candidate : _delimiters) {
    if (candidate.text.empty()) continue;
    const size_t found = _Find(candidate);
    if (found >= first) continue;  // npos too
    first = found;
    winner = &candidate;
  }
  if (winner == nullptr) return false;
  delimiter = winner->text;
  _Take(out, first + winner->text.size() - _taken);
  return true;
}

bool DelimParser::GetNextStringToEOL(std::string& out, char end) {
  const size_t found = _raw.find(end, end == _end ? std::max(_endSearched, _taken) : _taken);
  if (found == std::string::npos) {
    _end = end;
    _endSearched = _raw.size();
    return false;
  }
  _Take(out, found + 1 - _taken);
  return true;
}

void DelimParser::ExpectBLOB(unsigned int size) {
  _expected = size;
}

bool DelimParser::GetNextStringOrBLOB(std::string& out, bool& isBLOB) {
  isBLOB = _expected != 0;
  if (!isBLOB) return GetNextStringToEOL(out, '\n');
  if (_raw.size() - _taken < _expected) return false;
  _Take(out, _expected);
  _expected = 0;
  return true;
}
