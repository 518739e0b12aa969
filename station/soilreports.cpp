#include "station/soilreports.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <system_error>
#include <utility>

#include "runtime/filesystem.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kWorking = ".new";  // ReplaceFile's, behind the name

std::string Content(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Says once why it can't, and what that means.
bool Replace(const std::string& path, const std::string& text, bool& told, const char* meaning) try {
  ReplaceFile(path, text);
  told = false;
  return true;
} catch (const std::exception& error) {
  unlink((path + kWorking).c_str());
  if (!std::exchange(told, true)) std::cout << "ERROR: a soil report " << meaning << ": " << error.what() << std::endl;
  return false;
}

}  // namespace

SoilReports::SoilReports(const Disk& disk, const std::string& name, const std::string& state)
    : _disk(disk), _name(name), _state(state) {
  std::error_code error;
  for (fs::directory_iterator entry(_state, error), end; entry != end; entry.increment(error)) {
    const std::string file = entry->path().filename();
    int64_t number = 0, moment = 0;
    int size = 0;
    std::sscanf(file.c_str(), "soil-report-%" SCNd64 ".%" SCNd64 ".txt%n", &number, &moment, &size);
    if (size > 0 && file.substr(static_cast<size_t>(size)) == kWorking) unlink(entry->path().c_str());
    if (static_cast<size_t>(size) != file.size()) continue;
    _waiting.push_back({static_cast<time_t>(moment), Content(entry->path()), number});
    _number = std::max(_number, number);
  }
  std::sort(_waiting.begin(), _waiting.end(),
            [](const _Report& one, const _Report& other) { return one.number < other.number; });
}

void SoilReports::Add(long moment, std::string text) {
  if (_waiting.size() == kMost) {
    _Shift();
    ++_lost;
  }
  _waiting.push_back({moment > 0 ? static_cast<time_t>(moment) : time(nullptr), std::move(text), ++_number});
  Write();
  if (!_waiting.empty())
    Replace(_WaitingPathOf(_waiting.back()), _waiting.back().text, _told_memory, "waits in memory only");
}

void SoilReports::Write() {
  const bool was_there = std::exchange(_there, _disk.IsStillThere());
  if (_there && !was_there) _FinishLeftovers();
  for (; _disk.IsStillThere() && !_waiting.empty(); ++_written) {
    const _Report& report = _waiting.front();
    if (!Replace(_PathOf(report), report.text, _told, "has to wait")) return;
    _Shift();
  }
}

// The first of those that wait doesn't any more.
void SoilReports::_Shift() {
  unlink(_WaitingPathOf(_waiting.front()).c_str());
  _waiting.pop_front();
}

void SoilReports::_FinishLeftovers() const {
  std::error_code error;  // the disk may go at any moment
  for (fs::directory_iterator entry(_disk.Path(), error), end; entry != end; entry.increment(error)) {
    const std::string path = entry->path(), ending = std::string(".txt") + kWorking;
    if (!path.ends_with(ending) || path.find("-soil-", _disk.Path().size()) == path.npos) continue;
    const std::string whole = path.substr(0, path.size() - std::string_view(kWorking).size());
    if (Content(path).ends_with('\n') && !fs::exists(whole, error))
      fs::rename(path, whole, error);
    else
      unlink(path.c_str());
  }
}

std::string SoilReports::_WaitingPathOf(const _Report& report) const {
  return _state + "/soil-report-" + std::to_string(report.number) + '.' + std::to_string(report.moment) + ".txt";
}

// After the next second that is free, or has this very report.
std::string SoilReports::_PathOf(const _Report& report) const {
  for (time_t moment = report.moment;; ++moment) {
    tm parts = {};
    char name[32];
    gmtime_r(&moment, &parts);
    strftime(name, sizeof name, "-soil-%Y-%m-%dT%H%M%S", &parts);
    std::string path = _disk.Path() + '/' + _name + name + ".txt";
    if (access(path.c_str(), F_OK) != 0 || Content(path) == report.text) return path;
  }
}
