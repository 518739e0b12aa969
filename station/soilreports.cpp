#include "station/soilreports.h"

#include <unistd.h>

#include <fstream>
#include <iostream>
#include <iterator>
#include <utility>

#include "runtime/filesystem.h"

void SoilReports::Add(long moment, std::string text) {
  if (_waiting.size() == kMost) _waiting.pop_front();
  _waiting.push_back({moment > 0 ? static_cast<time_t>(moment) : time(nullptr), std::move(text)});
  Write();
}

void SoilReports::Write() {
  for (; _disk.IsStillThere() && !_waiting.empty(); _waiting.pop_front()) {
    const std::string path = _PathOf(_waiting.front());
    try {
      ReplaceFile(path, _waiting.front().text);
      _told = false;
    } catch (const std::exception& error) {
      unlink((path + ".new").c_str());
      if (!std::exchange(_told, true)) std::cout << "ERROR: a soil report has to wait: " << error.what() << std::endl;
      return;
    }
  }
}

// After the next second that is free, or has this very report.
std::string SoilReports::_PathOf(const _Report& report) const {
  for (time_t moment = report.moment;; ++moment) {
    tm parts = {};
    char name[32];
    gmtime_r(&moment, &parts);
    strftime(name, sizeof name, "-soil-%Y-%m-%dT%H%M%S", &parts);
    std::string path = _disk.Path() + '/' + _name + name + ".txt";
    std::ifstream file(path, std::ios::binary);
    if (!file || std::string(std::istreambuf_iterator<char>(file), {}) == report.text) return path;
  }
}
