// What comes out of the loop as an exception: it is told, and the loop goes on; but not for ever with the same one.
//
// Thread: the poll loop's.

#pragma once

#include <cstdint>
#include <deque>
#include <iostream>
#include <map>
#include <string>

#include "runtime/pollprocessor.h"

class Mishaps {
 public:
  // Tells it. False when it is the same one for the hundredth time within a minute: somebody has to start afresh.
  bool Bear(const std::string& text) {
    constexpr size_t kMost = 100;
    constexpr int64_t kMinute = 60'000'000'000;  // nanoseconds
    std::cout << "ERROR: " << text << std::endl;
    const int64_t now = PollTimer::Now();
    std::erase_if(_came, [now](const auto& other) { return now - other.second.back() > kMinute; });
    // Those that tell something else each time aren't kept for ever.
    if (_came.size() >= kMost && !_came.contains(text)) _came.clear();
    std::deque<int64_t>& times = _came[text];
    while (!times.empty() && now - times.front() > kMinute) times.pop_front();
    times.push_back(now);
    return times.size() < kMost;
  }

 private:
  std::map<std::string, std::deque<int64_t>> _came;  // when each one did, in the last minute
};
