// Feeds the clock law with a simulated clock, once a second against an exact pulse, and prints what it does.
//
//   clock-sync            20,000 ppb fast
//   clock-sync -35000     any other drift, in ppb
//
// Each reading of the clock comes a little late, as an interrupt does. Half way through the clock jumps by two seconds:
// the law starts again, and the jump is made good by a step. Ends by itself after ten minutes of simulated time.

#include <cstdint>
#include <cstdlib>
#include <iomanip>
#include <iostream>

#include "serial/linuxclocksync.h"

namespace {

constexpr int64_t kSecond = 1'000'000'000;  // in nanoseconds
constexpr int kSeconds = 600;
constexpr int kJump = 300;

// Nanoseconds, from 0 up: most often a little.
int Latency() {
  static uint32_t state = 1;
  state = state * 1664525 + 1013904223;
  return state >> 28 == 0 ? 40'000 : static_cast<int>(state >> 22);
}

TimeVal ToTimeVal(int64_t nanoseconds) {
  return {static_cast<int32_t>(nanoseconds / kSecond), static_cast<int32_t>(nanoseconds % kSecond)};
}

}  // namespace

int main(int argc, char** argv) {
  const int64_t drift = argc > 1 ? std::atoi(argv[1]) : 20'000;  // ppb, positive: the clock is fast
  LinuxClockSync law(false, 40, 4);
  int64_t ahead = 0;  // how far the clock is ahead of the pulse, nanoseconds
  long frequency = 0;
  for (int second = 1; second <= kSeconds; ++second) {
    // A frequency word is 2^-16 ppm, so 1000 / 65536 ppb.
    ahead += drift + static_cast<int64_t>(frequency) * 1000 / 65536;
    if (second == kJump) ahead += 2 * kSecond;
    const int64_t reading = second * kSecond + ahead + Latency();
    if (!law.Sync(ToTimeVal(reading), TimeVal(second), &frequency)) continue;
    std::cout << std::setw(4) << second << " s: ahead " << std::setw(10) << ahead << " ns, frequency " << std::setw(9)
              << frequency << '\n';
    if (std::abs(ahead) < kSecond) continue;
    std::cout << "        stepped back, and started again\n";
    ahead = 0;
  }
  std::cout << "in the end " << (std::abs(ahead) < 10'000 ? "within" : "not within") << " 10 microseconds" << std::endl;
  return 0;
}
