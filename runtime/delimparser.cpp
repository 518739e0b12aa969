#include "runtime/delimparser.h"

#include <algorithm>

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
    const auto shift = [this](Mark& mark) { mark.searched -= std::min(mark.searched, _taken); };
    std::for_each(_delimiters.begin(), _delimiters.end(), shift);
    shift(_end);
    _taken = 0;
  }
  _raw.append(data, size);
}

void DelimParser::ClearRawData() {
  _taken = _raw.size();
}

// Where the mark's text starts first in the untaken bytes, npos if it doesn't. Goes on where the last search ended.
size_t DelimParser::_Find(Mark& mark) {
  mark.searched = std::max(mark.searched, _taken);
  const size_t found = _raw.find(mark.text, mark.searched);
  if (found != std::string::npos)
    mark.searched = found;
  else if (_raw.size() >= mark.searched + mark.text.size())
    mark.searched = _raw.size() + 1 - mark.text.size();  // behind this the text may have begun
  return found;
}

// Only a step forward: moving the rest up for every record would cost the square of a large chunk.
void DelimParser::_Take(std::string& out, size_t size) {
  out.assign(_raw, _taken, size);
  _taken += size;
}

bool DelimParser::GetNextDelimString(std::string& out) {
  std::string delimiter;
  return GetNextDelimString(out, delimiter);
}

bool DelimParser::GetNextDelimString(std::string& out, std::string& delimiter) {
  if (_line) {
    delimiter = "\n";
    return GetNextStringToEOL(out, '\n');
  }
  size_t first = std::string::npos;
  const Mark* winner = nullptr;
  for (Mark& mark : _delimiters) {
    if (mark.text.empty()) continue;
    const size_t found = _Find(mark);
    if (found >= first) continue;  // npos too
    first = found;
    winner = &mark;
  }
  if (winner == nullptr) return false;
  delimiter = winner->text;
  _Take(out, first + winner->text.size() - _taken);
  return true;
}

bool DelimParser::GetNextStringToEOL(std::string& out, char end) {
  if (_end.text[0] != end) _end = {std::string(1, end), 0};
  const size_t found = _Find(_end);
  if (found == std::string::npos) return false;
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
