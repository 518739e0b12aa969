// Compiled once for each fuzzer that a test program holds: its oracle over its corpus, and over variants of the seeds
// that are the same in each run. The oracle aborts when two answers differ, so it runs in a child.
//
// The build defines ORACLE, the fuzzer's name; ORACLE_RUNS, how many variants; ORACLE_CORPUS, the folder of the seeds;
// and gives the fuzzer's entry point a name of its own. MOORLOG_ORACLE_SEED in the environment asks for other variants,
// MOORLOG_ORACLE_LENGTH for so many times longer ones.

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "tests/support/setting.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

const int longer = Setting("MOORLOG_ORACLE_LENGTH", 1);
std::string current;  // what the oracle has got; shown when it aborts

void Ask(std::string input) {
  current = std::move(input);
  // A block of exactly its size, so that a sanitizer sees each byte read behind it.
  const std::vector<uint8_t> bytes(current.begin(), current.end());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

void ShowInput(int) {
  std::fputs("input: \"", stderr);
  for (const unsigned char c : current) std::fprintf(stderr, std::isprint(c) ? "%c" : "\\x%02x", c);
  std::fputs("\"\n", stderr);
  std::signal(SIGABRT, SIG_DFL);
}

class Variants {
 public:
  explicit Variants(std::vector<std::string> seeds) : _seeds(std::move(seeds)) {}

  std::string Next() {
    std::string text;
    for (int part = 0; part < longer; ++part) text += Pick(_seeds);
    for (size_t changes = Below(size_t{4} * longer) + 1; changes > 0; --changes) Change(text);
    return text;
  }

 private:
  size_t Below(size_t count) { return _random() % count; }
  const std::string& Pick(const std::vector<std::string>& texts) { return texts[Below(texts.size())]; }
  // A stretch of a seed, or a few bytes of any value.
  std::string Piece() {
    const std::string& from = Pick(_seeds);
    if (Below(4) == 0 || from.empty()) return std::string(Below(3) + 1, static_cast<char>(_random()));
    return from.substr(Below(from.size()), Below(12) + 1);
  }
  void Change(std::string& text) {
    const size_t at = Below(text.size() + 1);
    const size_t length = std::min(Below(8) + 1, text.size() - at);
    switch (Below(6)) {
      case 0:
        text.insert(at, Piece());
        break;
      case 1:
        text.erase(at, length);
        break;
      case 2:
        if (at < text.size()) text[at] = static_cast<char>(text[at] ^ (1 << Below(8)));
        break;
      case 3:  // digits stay digits: numbers of other sizes
        if (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) != 0)
          text[at] = static_cast<char>('0' + Below(10));
        break;
      case 4:
        text.insert(at, text.substr(at, length));
        break;
      default:
        text.replace(at, length, Piece());
    }
  }

  const std::vector<std::string> _seeds;
  std::mt19937 _random{static_cast<uint32_t>(Setting("MOORLOG_ORACLE_SEED", 1))};
};

// An oracle that hangs ends by itself, and with the program that it belongs to.
void Bound() {
  const auto seconds = static_cast<rlim_t>(60) * longer;  // of processor time; an oracle takes a few
  const rlimit limit = {seconds, seconds};
  setrlimit(RLIMIT_CPU, &limit);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
}

void AskAll() {
  Bound();
  std::signal(SIGABRT, ShowInput);
  std::vector<std::filesystem::path> names;
  for (const auto& entry : std::filesystem::directory_iterator(ORACLE_CORPUS)) names.push_back(entry.path());
  std::sort(names.begin(), names.end());
  std::vector<std::string> seeds;
  for (const auto& name : names) {
    std::ifstream file(name, std::ios::binary);
    seeds.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  if (seeds.empty()) std::exit(2);
  Ask({});
  for (const std::string& seed : seeds) Ask(seed);
  Variants variants(seeds);
  for (int run = 0; run < ORACLE_RUNS; ++run) Ask(variants.Next());
  std::exit(0);
}

TEST(Oracle, ORACLE) {
  EXPECT_EXIT(AskAll(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
