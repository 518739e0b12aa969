#include "runtime/datachecksum.h"

#include "runtime/numbertext.h"
#include "runtime/str_util.h"

namespace {

constexpr size_t kField = 3;          // the digits
constexpr size_t kTail = kField + 1;  // and the line feed

}  // namespace

unsigned int CheckSum(std::string_view bytes) {
  unsigned int sum = 0;
  for (const char byte : bytes) sum += static_cast<unsigned char>(byte);
  return sum % 256;
}

int ReadCheckSum(std::string_view line) {
  if (line.size() < kTail) return 0;
  std::string_view field = line.substr(line.size() - kTail, kField);
  SkipSpace(field);
  bool failed = false;
  return TakeInteger(field, failed);
}

bool CheckSumAgrees(std::string_view line) {
  return line.size() >= kTail && static_cast<int>(CheckSum(line.substr(0, line.size() - kTail))) == ReadCheckSum(line);
}

void AppendCheckSum(std::string& line) {
  const std::string digits = std::to_string(CheckSum(line));
  line.append(kField - digits.size(), ' ').append(digits) += '\n';
}
