// Feeds the clock law with a simulated clock, once a second against an exact pulse, and prints what it does.
//
//   clock-sync            20,000 ppb fast
//   clock-sync -35000     any other drift, in ppb, to 500,000 either way: what the kernel can make good
//
// Each reading of the clock comes a little late, as an interrupt does. Half way through the clock jumps by two seconds:
// the law starts again, and the jump is made good by a step. Ends by itself after ten minutes of simulated time.

#include <cstdint>
#include <cstdlib>
#include <iomanip>
#include <iostream>

#include "examples/commandline.h"
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
  CommandLine line("Feeds the clock law with a simulated clock, once a second, and prints what it does.");
  int drift = 20'000;
  line.AddNumber("drift", drift, -500'000, 500'000, "of the clock, in ppb; positive: it is fast")
      ->capture_default_str();
  line.Read(argc, argv);

  LinuxClockSync law(false, 40, 4);
  int64_t ahead = 0;  // how far the clock is ahead of the pulse, nanoseconds
  long frequency = 0;
  int commands = 0;
  int jumps = 0;
  for (int second = 1; second <= kSeconds; ++second) {
    // A frequency word is 2^-16 ppm, so 1000 / 65536 ppb.
    ahead += drift + static_cast<int64_t>(frequency) * 1000 / 65536;
    if (second == kJump) ahead += 2 * kSecond;
    const int64_t reading = second * kSecond + ahead + Latency();
    if (!law.Sync(ToTimeVal(reading), TimeVal(second), &frequency)) continue;
    ++commands;
    std::cout << std::setw(4) << second << " s: ahead " << std::setw(10) << ahead << " ns, frequency " << std::setw(9)
              << frequency << '\n';
    if (std::abs(ahead) < kSecond) continue;
    ++jumps;
    std::cout << "        stepped back, and started again\n";
    ahead = 0;
  }
  std::cout << "in the end " << (std::abs(ahead) < 10'000 ? "within" : "not within") << " 10 microseconds\n";
  return LastLine({{"commands", commands}, {"steps", jumps}, {"simulated seconds", kSeconds}});
}
