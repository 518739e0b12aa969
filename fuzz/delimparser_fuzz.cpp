// DelimParser beside a reference that searches from the start and erases from the front each time.
//
// The input is a list of operations, one byte each with its operand behind it: what is fed and in which chunks, which
// delimiters are added and when, and what is taken.

#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "runtime/delimparser.h"

namespace {

class Reference {
 public:
  std::vector<std::string> delimiters;
  std::string raw;
  unsigned int expected = 0;

  bool Take(std::string& out, size_t size) {
    out = raw.substr(0, size);
    raw.erase(0, size);
    return true;
  }

  bool Line(std::string& out, char end) {
    const size_t found = raw.find(end);
    return found != std::string::npos && Take(out, found + 1);
  }

  bool Record(std::string& out, std::string& delimiter) {
    size_t first = std::string::npos;
    for (const auto& candidate : delimiters) {
      const size_t found = candidate.empty() ? std::string::npos : raw.find(candidate);
      if (found >= first) continue;
      first = found;
      delimiter = candidate;
    }
    return first != std::string::npos && Take(out, first + delimiter.size());
  }

  bool LineOrBlock(std::string& out, bool& block) {
    block = expected > 0;
    if (!block) return Line(out, '\n');
    if (raw.size() < expected) return false;
    return Take(out, std::exchange(expected, 0));
  }
};

class Input {
 public:
  Input(const uint8_t* data, size_t size) : _rest(reinterpret_cast<const char*>(data), size) {}

  bool Empty() const { return _rest.empty(); }
  unsigned char Byte() { return Empty() ? 0 : static_cast<unsigned char>(Text(1)[0]); }
  std::string Text(size_t size) {
    std::string text(_rest.substr(0, size));
    _rest.remove_prefix(text.size());
    return text;
  }

 private:
  std::string_view _rest;
};

void Require(bool holds) {
  if (!holds) std::abort();
}

// Takes once from both and compares; false when there was nothing.
bool TakeOnce(DelimParser& parser, Reference& reference, unsigned char how, char end) {
  const std::string untouched = "untouched";
  std::string out = untouched, expected = untouched, delimiter, expectedDelimiter;
  bool block = false, expectedBlock = false, taken = false, expectedTaken = false;
  switch (how % 3) {
    case 0:
      taken = end % 2 == 0 ? parser.GetNextDelimString(out, delimiter) : parser.GetNextDelimString(out);
      expectedTaken = reference.Record(expected, expectedDelimiter);
      Require(!taken || end % 2 != 0 || delimiter == expectedDelimiter);
      break;
    case 1:
      taken = parser.GetNextStringToEOL(out, end);
      expectedTaken = reference.Line(expected, end);
      break;
    default:
      taken = parser.GetNextStringOrBLOB(out, block);
      expectedTaken = reference.LineOrBlock(expected, expectedBlock);
      Require(block == expectedBlock);
  }
  Require(taken == expectedTaken);
  Require(out == expected);
  return taken;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  DelimParser parser;
  Reference reference;
  while (!input.Empty()) {
    const unsigned char operation = input.Byte();
    const size_t count = operation >> 4;
    switch (operation & 7) {
      case 0:
        reference.delimiters.push_back(input.Text(count % 5));
        parser.AddDelimiter(reference.delimiters.back());
        break;
      case 1:
        reference.expected = input.Byte();
        parser.ExpectBLOB(reference.expected);
        break;
      case 2:
        reference.raw.clear();
        parser.ClearRawData();
        break;
      case 3: {
        const char end = static_cast<char>(input.Byte());
        TakeOnce(parser, reference, static_cast<unsigned char>(count), end);
        break;
      }
      case 4:
        while (TakeOnce(parser, reference, static_cast<unsigned char>(count), '\n')) continue;
        break;
      default: {
        const std::string chunk = input.Text(count * count);
        reference.raw += chunk;
        if ((operation & 8) != 0)
          parser.AppendRawData(std::vector<char>(chunk.begin(), chunk.end()));
        else
          parser.AppendRawData(chunk);
      }
    }
  }
  return 0;
}
