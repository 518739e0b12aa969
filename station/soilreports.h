// The soil chamber's reports on their way to the disk, where each becomes a file of its own:
//
//   bog-soil-2024-05-01T103000.txt
//
// The chamber is asked for a report once only, so those that find no disk, or no room, wait, the last thousand of them
// (three weeks of half hours): in memory, and as files in the state directory, out of which they are taken at the next
// start. What a kill has left of one under its working name is finished when the disk is found, or deleted where it is
// cut.

#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <string>

#include "station/disk.h"

class SoilReports {
 public:
  static constexpr size_t kMost = 1'000;

  // `name` is what the files' names begin with; `state` the state directory. All outlive this.
  SoilReports(const Disk& disk, const std::string& name, const std::string& state);

  // `moment`: in seconds since 1970; a report without one (0 or below) is called after the present. What waits is
  // written as well.
  void Add(long moment, std::string text);
  // All that wait, up to the first that can't be written. Says why it can't, once.
  void Write();

  // Reports since the beginning. Those that wait are neither.
  int64_t Written() const { return _written; }
  int64_t Lost() const { return _lost; }

 private:
  struct _Report {
    time_t moment;
    std::string text;
    int64_t number;  // in the order in which they came
  };

  std::string _PathOf(const _Report& report) const;
  std::string _WaitingPathOf(const _Report& report) const;
  void _Shift();
  void _FinishLeftovers() const;

  const Disk& _disk;
  const std::string& _name;
  const std::string& _state;
  std::deque<_Report> _waiting;
  int64_t _number = 0;  // of the last one
  bool _there = false;  // the disk, at the last look
  bool _told = false;   // why they have to wait
  bool _told_memory = false;
  int64_t _written = 0, _lost = 0;
};
