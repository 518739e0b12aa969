// What comes out of the loop as an exception: it is told, and the loop goes on; but not for ever with the same one.
//
// Thread: the poll loop's.

#pragma once

#include <cstdint>
#include <iostream>
#include <string>

#include "runtime/pollprocessor.h"

class Mishaps {
 public:
  // Tells it. False when it is the same one for the hundredth time within a minute: somebody has to start afresh.
  bool Bear(const std::string& text) {
    constexpr int kMost = 100;
    constexpr int64_t kMinute = 60'000'000'000;  // nanoseconds
    std::cout << "ERROR: " << text << std::endl;
    if (text != _text || PollTimer::Now() - _begun > kMinute) {
      _text = text;
      _begun = PollTimer::Now();
      _count = 0;
    }
    return ++_count < kMost;
  }

 private:
  std::string _text;
  int64_t _begun = 0;  // when it came first
  int _count = 0;
};
