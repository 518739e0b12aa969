// Day files against a plain second form of them: names, both kinds of lines, and when a file begins.
//
// Input: a byte for each step, by its value modulo 8, and what the step takes from the bytes behind it:
//
//   0  headings: how many columns, a byte for each             1 2 3  a row: scale, factor, how many values, 8 bytes
//   each 4  the clock: a byte around what counts as set             5 6 7  write it

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "logging/daqmlogfile.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

struct Bytes {
  int Next() { return at < size ? data[at++] : 0; }
  const uint8_t* data;
  size_t size;
  size_t at = 0;
};

std::string Formatted(const char* format, time_t time) {
  char text[64];
  return {text, std::strftime(text, sizeof text, format, std::localtime(&time))};
}

std::string Line(const std::string& word, long time, bool date, const std::vector<double>& values) {
  std::string line = word + '\t' + std::to_string(time) + "\t0\t";
  if (date) line += Formatted("%Y-%m-%d\t%H:%M:%S\t", time);
  for (const double value : values) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    line += std::string(std::isnan(value) ? "nan" : text) + '\t';
  }
  int sum = 0;
  for (const char c : line) sum += static_cast<unsigned char>(c);
  char text[8];
  std::snprintf(text, sizeof text, "%3d\n", sum % 256);
  return line + text;
}

std::string Headings(const std::string& word, bool date, const std::vector<std::string>& names,
                     const std::vector<std::string>& units) {
  std::string text = word + "H\tSECONDS\tNANOSECONDS\t" + (date ? "DATE\tTIME\t" : "");
  for (const std::string& name : names) text += name + '\t';
  text += "CHK\n" + word + "U\tseconds\tnanoseconds\t" + (date ? "date\ttime\t" : "");
  for (const std::string& unit : units) text += unit + '\t';
  return text + "CHK\n";
}

std::map<std::string, std::string> FilesIn(const std::string& directory) {
  std::map<std::string, std::string> files;
  if (!std::filesystem::exists(directory)) return files;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    std::ifstream file(entry.path(), std::ios::binary);
    files[entry.path().filename()] = {std::istreambuf_iterator<char>(file), {}};
  }
  return files;
}

struct Directory {
  Directory() {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    REQUIRE(mkdtemp(path.data()) != nullptr);
  }
  ~Directory() { std::filesystem::remove_all(path); }
  std::string path = "/dev/shm/moorlog-fuzz-XXXXXX";
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Directory above;
  const std::string directory = above.path + "/rows";
  std::filesystem::remove_all(directory);
  Bytes in{data, size};
  DAQMLogFile log(directory, ".txt", "BOG");
  std::map<std::string, std::string> expected;
  std::vector<std::string> names, units;
  std::vector<double> values;
  std::string open, headings, row;
  long time = 0;
  long now = 1'711'839'600;  // half an hour before the clocks go forward
  int day = 0;
  while (in.at < in.size) {
    const int step = in.Next() % 8;
    if (step == 0) {
      names.clear();
      units.clear();
      for (int left = in.Next() % 5; left > 0; --left) {
        names.push_back("N" + std::to_string(in.Next()));
        units.push_back(names.back().substr(1));
      }
      log.SetHeader(names, units);
      headings = Headings("DATA", true, names, units);
      REQUIRE(log.StationHeader() == Headings("BOG", false, names, units));
      open.clear();
    } else if (step < 4) {
      constexpr long kScales[] = {1, 60, 3'600, 86'400};
      const long scale = kScales[in.Next() % 4];
      now += scale * static_cast<int8_t>(in.Next());
      values.assign(static_cast<size_t>(in.Next() % 4), 0);
      for (double& value : values) {
        uint64_t bits = 0;
        for (int i = 0; i < 8; ++i) bits = bits << 8 | static_cast<uint64_t>(in.Next());
        std::memcpy(&value, &bits, sizeof bits);
      }
      log.SetData(time = now, values);
      row = Line("DATA", time, true, values);
      REQUIRE(log.StationData() == Line("BOG", time, false, values));
    } else if (step == 4) {
      now = 1'000'000'000 + static_cast<int8_t>(in.Next());
    } else {
      bool opened = false;
      if (time >= 1'000'000'000) {
        const time_t moment = time;
        if (std::localtime(&moment)->tm_yday != day) open.clear();
        day = std::localtime(&moment)->tm_yday;
        opened = open.empty();
        if (opened) expected[open = Formatted("%Y-%m-%d-%H%M%S.txt", time)] = headings;
        expected[open] += row;
      }
      REQUIRE(log.LogData() == opened);
      REQUIRE(FilesIn(directory) == expected);  // complete at each moment
    }
  }
  return 0;
}
