// Soil reports to a disk that comes and goes, beside a plain list of those that wait: what stands in the directory
// afterwards is each report once, none that was written is replaced, and no others are lost than the oldest of more
// than a thousand.
//
// Input: a byte for each step. The upper four bits choose one of a few moments and texts; the lower four add the
// report, or many, or take the disk away, put it back, let everything refuse and take bytes again, or start anew.

#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "emulators/temp_directory.h"
#include "station/soilreports.h"

namespace {

constexpr long kMoment = 1'709'251'200;  // 2024-03-01 00:00:00 UTC

void Require(bool condition) {
  if (!condition) std::abort();
}

// A second form of the waiting line: files by their moment.
struct Model {
  void Write() {
    for (; there && !broken && !waiting.empty(); waiting.pop_front(), ++written) {
      auto [moment, text, kept] = waiting.front();
      while (files.count(moment) > 0 && files[moment] != text) ++moment;
      files[moment] = text;
    }
  }
  struct Report {
    std::time_t moment;
    std::string text;
    bool kept;  // for a next life
  };
  std::deque<Report> waiting;
  std::map<std::time_t, std::string> files;
  bool there = true, broken = false;
  int64_t written = 0, lost = 0;  // in this life
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const TempDirectory place(TempDirectory::Memory());
  static const std::string path = place / "disk", state = place / "state", name = "bog";
  for (const std::string& directory : {path, state}) {
    std::filesystem::remove_all(directory);
    std::filesystem::create_directory(directory);
  }
  // What a kill has left.
  place.Write("disk/old-soil-1.txt.new", "whole\n");
  place.Write("disk/old-soil-2.txt.new", "cut");
  place.Write("disk/old-soil-3.txt.new", "another\n");
  place.Write("disk/old-soil-3.txt", "");
  place.Write("disk/other.txt.new", "\n");
  place.Write("state/soil-report-1.2.txt.new", "cut");
  std::cout.setstate(std::ios::badbit);  // what has to wait is told
  Disk disk(path, true);
  std::optional<SoilReports> reports(std::in_place, disk, name, state);
  Model model;
  // Files get no bytes.
  const auto refuse = [&](bool on) {
    model.broken = on;
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = on ? 0 : limit.rlim_max;
    setrlimit(RLIMIT_FSIZE, &limit);
  };
  std::signal(SIGXFSZ, SIG_IGN);
  for (std::size_t i = 0; i < std::min<std::size_t>(size, 200); ++i) {
    const long moment = kMoment + (data[i] >> 4 & 3);
    const std::string text = "report " + std::to_string(data[i] >> 6) + std::string(data[i] >> 6, '\n');
    switch (const int deed = data[i] & 15; deed) {
      case 0:
        disk.Eject();
        model.there = false;
        break;
      case 1:
        disk.Use();
        model.there = true;
        break;
      case 2:
        refuse(true);
        break;
      case 3:
        refuse(false);
        reports->Write();
        model.Write();
        break;
      case 5:
        reports.emplace(disk, name, state);
        model.written = model.lost = 0;
        std::erase_if(model.waiting, [](const auto& report) { return !report.kept; });
        reports->Write();
        model.Write();
        break;
      default:
        for (int count = deed == 4 ? 300 : 1; count > 0; --count) {
          const long its = moment + 7L * count;
          reports->Add(its, text);
          if (model.waiting.size() == SoilReports::kMost) {
            model.waiting.pop_front();
            ++model.lost;
          }
          model.waiting.push_back({its, text, !model.broken});
          model.Write();
        }
    }
  }
  refuse(false);
  disk.Use();
  model.there = true;
  reports->Write();
  model.Write();
  std::cout.clear();
  Require(reports->Written() == model.written && reports->Lost() == model.lost);
  Require(std::filesystem::is_empty(state));
  std::map<std::string, std::string> expected = {
      {"old-soil-1.txt", "whole\n"}, {"old-soil-3.txt", ""}, {"other.txt.new", "\n"}};
  std::map<std::string, std::string> found;
  for (const auto& [moment, text] : model.files) {
    tm parts = {};
    char file[64];
    gmtime_r(&moment, &parts);
    strftime(file, sizeof file, "bog-soil-%Y-%m-%dT%H%M%S.txt", &parts);
    expected[file] = text;
  }
  for (const auto& entry : std::filesystem::directory_iterator(path)) {
    std::ifstream file(entry.path(), std::ios::binary);
    found[entry.path().filename()].assign(std::istreambuf_iterator<char>(file), {});
  }
  Require(found == expected);
  return 0;
}
