// The line format of the modules' bus against a plain second form of it: sums, covered parts, framing, the word for
// missing values; and bytes cut into lines, of which some throw.
//
// Input: a byte, from which the sizes of the chunks follow, and the bytes.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "daqm/daqmdevice.h"
#include "emulators/own_host.h"
#include "emulators/pty.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

uint32_t Sum(const std::string& text) {
  uint32_t sum = 0;
  for (size_t i = 0; i < text.size(); ++i)
    sum ^= static_cast<uint32_t>(static_cast<unsigned char>(text[i])) << (24 - i % 4 * 8);
  return sum;
}

std::string Covered(const std::string& line, size_t tail) {
  size_t start = 0;
  int quotes = 0;
  for (size_t i = 0; i < line.size() && quotes < 2; ++i)
    if (line[i] == '"' && ++quotes == 2) start = i;
  std::string covered;
  for (size_t i = start; i + tail < line.size(); ++i) covered += line[i];
  return covered;
}

std::string Hexadecimal(const char* format, uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

// As a stream does; signs and "0x" included.
bool ReadSum(const std::string& field, uint32_t& value) {
  std::istringstream in(field);
  uint32_t sum = 0;
  if (!(in >> std::hex >> sum)) return false;
  value = sum;
  return true;
}

void CheckFormat(const std::string& text) {
  REQUIRE(_CalculateChecksum(text) == Sum(text));
  REQUIRE(_SkipHopCount(text, false) == Covered(text, 0));
  REQUIRE(_SkipHopCount(text, true) == Covered(text, 9));
  REQUIRE(FrameDAQMLine(text) == text + Hexadecimal("%08X", Sum(Covered(text, 0))) + '\n');
  std::string clean = text;
  for (size_t at = 0; (at = clean.find("nan", at)) != clean.npos; ++at) clean.replace(at, 3, "null");
  REQUIRE(_SanitizeJSON(text) == clean);
}

void CheckSum(const std::string& line) {
  std::ostringstream output;
  std::streambuf* const before = std::cout.rdbuf(output.rdbuf());
  std::string result;
  try {
    result = ValidateChecksum(line) ? "right" : "wrong";
  } catch (const std::out_of_range&) {
    result = "short";
  }
  std::cout.rdbuf(before);
  REQUIRE((std::cout.flags() & std::ios::basefield) == std::ios::dec && std::cout.fill() == ' ');
  REQUIRE((result == "short") == (line.size() < 9));
  if (result == "short") return;
  const uint32_t calculated = Sum(Covered(line, 9));
  uint32_t embedded = 0;
  const bool right = ReadSum(line.substr(line.size() - 9), embedded) && embedded == calculated;
  REQUIRE(result == (right ? "right" : "wrong"));
  REQUIRE(output.str() ==
          (right ? ""
                 : "ERROR: Invalid checksum: " + line + "\n     Embedded checksum: " + Hexadecimal("%08x", embedded) +
                       "\n   Calculated checksum: " + Hexadecimal("%08x", calculated) + '\n'));
}

// Throws at each line with a "!".
struct Lines : DAQMDevice::Listener {
  void GotDAQMLine(std::string line) override {
    got.push_back(line);
    if (line.find('!') != line.npos) throw std::runtime_error(line);
  }
  std::vector<std::string> got;
};

struct Bus {
  Lines lines;
  Pty pty;
  LinuxTTYReader reader{pty.Path()};
  DAQMDevice device{pty.Path(), 13, &lines, false};
};

Bus* MakeBus() {
  if (!BecomeRoot()) return nullptr;
  Gpio::_debug = true;
  static Bus bus;
  return &bus;
}

void CheckCutting(Bus& bus, const std::string& bytes, size_t chunk) {
  std::vector<std::string> expected(1), thrown, expected_thrown;
  bus.lines.got.clear();
  for (size_t at = 0; at < bytes.size(); at += chunk) {
    const std::string piece = bytes.substr(at, chunk);
    try {
      bus.device.ReceivedChars(bus.reader, piece.data(), static_cast<int>(piece.size()));
    } catch (const std::runtime_error& error) {
      thrown.emplace_back(error.what());
    }
    bool first = true;
    for (const char c : piece) {
      expected.back() += c;
      if (c != '\n') continue;
      if (expected.back().find('!') != std::string::npos && std::exchange(first, false))
        expected_thrown.emplace_back(expected.back().c_str());
      expected.emplace_back();
    }
  }
  try {
    bus.device.ReceivedChars(bus.reader, "\n", 1);  // ends what is left for the next input
  } catch (const std::runtime_error&) {
  }
  expected.back() += '\n';
  REQUIRE(bus.lines.got == expected);
  REQUIRE(thrown == expected_thrown);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  static Bus* const bus = MakeBus();
  CheckFormat(bytes);
  std::istringstream lines(bytes);
  for (std::string line; std::getline(lines, line);) {
    CheckFormat(line);
    CheckSum(line);
    CheckSum(line + '\n');
    CheckSum(FrameDAQMLine(line));
  }
  if (bus != nullptr) CheckCutting(*bus, bytes, data[0] % 16 < 8 ? data[0] % 8 + 1 : data[0]);
  return 0;
}
