// Data lines of any bytes: the sum is read as a stream reads a field of three, and a line that was closed agrees.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "runtime/datachecksum.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string line(reinterpret_cast<const char*>(data), size);
  unsigned int sum = 0;
  for (size_t i = 0; i < size; ++i) sum += data[i];
  Require(CheckSum(line) == sum % 256);

  int told = 0;
  unsigned int before = 0;
  for (size_t i = 0; i + 4 < size; ++i) before += data[i];
  if (size >= 4) std::istringstream(line.substr(size - 4, 3)) >> told;
  Require(ReadCheckSum(line) == told);
  Require(CheckSumAgrees(line) == (size >= 4 && told >= 0 && before % 256 == static_cast<unsigned int>(told)));

  std::string closed = line;
  AppendCheckSum(closed);
  char field[8];
  std::snprintf(field, sizeof field, "%3u\n", sum % 256);
  Require(closed == line + field && CheckSumAgrees(closed));
  return 0;
}
