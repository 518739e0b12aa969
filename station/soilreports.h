// The soil chamber's reports on their way to the disk, where each becomes a file of its own:
//
//   bog-soil-2024-05-01T103000.txt
//
// The chamber is asked for a report once only, so those that find no disk, or no room, wait in memory, the last
// thousand of them (three weeks of half hours).

#pragma once

#include <cstddef>
#include <ctime>
#include <deque>
#include <string>

#include "station/disk.h"

class SoilReports {
 public:
  static constexpr size_t kMost = 1'000;

  // `name` is what the files' names begin with. Both outlive this.
  SoilReports(const Disk& disk, const std::string& name) : _disk(disk), _name(name) {}

  // `moment`: in seconds since 1970; a report without one (0 or below) is called after the present. What waits is
  // written as well.
  void Add(long moment, std::string text);
  // All that wait, up to the first that can't be written. Says why it can't, once.
  void Write();

 private:
  struct _Report {
    time_t moment;
    std::string text;
  };

  std::string _PathOf(const _Report& report) const;

  const Disk& _disk;
  const std::string& _name;
  std::deque<_Report> _waiting;
  bool _told = false;  // why they have to
};
