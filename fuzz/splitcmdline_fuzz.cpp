// Splitting a command line: every word is a piece of the line, in order, and between the words stand only blanks and
// at most the two quotes of each.

#include <cstdint>
#include <cstdlib>

#include "runtime/str_util.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string line(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> words = {"kept"};
  SplitCmdLine(line, words);
  Require(words.at(0) == "kept");

  size_t position = 0;
  const auto skip_gap = [&](size_t end) {
    for (; position < end; ++position) Require(std::string(" '\"").find(line[position]) != std::string::npos);
  };
  for (size_t i = 1; i < words.size(); ++i) {
    Require(!words[i].empty());
    // Where it could stand earlier than it was taken, it is made of quotes and blanks alone: the gap rule still holds.
    const size_t start = line.find(words[i], position);
    Require(start != std::string::npos);
    skip_gap(start);
    position = start + words[i].size();
  }
  skip_gap(size);
  return 0;
}
