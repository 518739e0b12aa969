// Feeds the clock law with a simulated clock, once a second against an exact pulse, and prints what it does.
//
//   clock-sync            20,000 ppb fast
//   clock-sync -35000     any other drift, in ppb, to 500,000 either way: what the kernel can make good
//
//   clock-sync --proportional 4 --integral 40    with these divisors
//
// Each reading of the clock comes a little late, as an interrupt does. Half way through the clock jumps by two seconds:
// the law starts again, and the jump is made good by a step. Ends by itself after ten minutes of simulated time, with a
// table of the divisors that settle such a clock, and how soon.

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iomanip>
#include <iostream>

#include "examples/commandline.h"
#include "serial/linuxclocksync.h"

namespace {

constexpr int64_t kSecond = 1'000'000'000;  // in nanoseconds
constexpr int kSeconds = 600;
constexpr int kJump = 300;

constexpr int kNear = 1'000'000;  // nanoseconds: more than late readings make, less than a swing

TimeVal ToTimeVal(int64_t nanoseconds) {
  return {static_cast<int32_t>(nanoseconds / kSecond), static_cast<int32_t>(nanoseconds % kSecond)};
}

struct Clock {
  int drift;             // ppb, positive: it is fast
  int64_t ahead = 0;     // how far it is ahead of the pulse, nanoseconds
  long frequency = 0;    // the correction that is in force
  int corrections = 0;   // so far
  int steps = 0;         // likewise
  int settled = 0;       // since this second it has been near, or is for the first time
  uint32_t latency = 1;  // the state of a generator
};

// How late a reading comes: nanoseconds, from 0 up, most often a little.
int Latency(Clock& clock) {
  clock.latency = clock.latency * 1664525 + 1013904223;
  return clock.latency >> 28 == 0 ? 40'000 : static_cast<int>(clock.latency >> 22);
}

// Calls `corrected` with the second of each correction, before the clock is stepped where it has to be.
void Run(Clock& clock, LinuxClockSync& law, int seconds, const std::function<void(int)>& corrected) {
  for (int second = 1; second <= seconds; ++second) {
    // A frequency word is 2^-16 ppm, so 1000 / 65536 ppb.
    clock.ahead += clock.drift + static_cast<int64_t>(clock.frequency) * 1000 / 65536;
    if (second == kJump) clock.ahead += 2 * kSecond;
    if (std::abs(clock.ahead) >= kNear) clock.settled = second + 1;
    const int64_t reading = second * kSecond + clock.ahead + Latency(clock);
    if (!law.Sync(ToTimeVal(reading), TimeVal(second), &clock.frequency)) continue;
    ++clock.corrections;
    corrected(second);
    if (std::abs(clock.ahead) < kSecond) continue;
    ++clock.steps;
    clock.ahead = 0;
  }
}

// The seconds from the jump on until the clock is near for good, of two hours.
void PrintTable(int drift) {
  constexpr int kLong = 7'200;  // seconds
  constexpr int kDivisors[] = {1, 2, 3, 4, 8, 16, 40, 100, 400};
  std::cout << "seconds until it stays within a millisecond; -: it swings for ever\n             integral";
  for (const int integral : kDivisors) std::cout << std::setw(5) << integral;
  for (const int proportional : kDivisors) {
    std::cout << "\nproportional " << std::setw(8) << proportional;
    for (const int integral : kDivisors) {
      Clock clock{drift};
      LinuxClockSync law(false, integral, proportional);
      Run(clock, law, kLong, [](int) {});
      const bool settles = clock.settled < kLong / 2;
      std::cout << std::setw(5) << (settles ? std::to_string(clock.settled - kJump) : "-");
    }
  }
  std::cout << '\n';
}

}  // namespace

int main(int argc, char** argv) {
  CommandLine line("Feeds the clock law with a simulated clock, once a second, and prints what it does.");
  Clock clock{20'000};
  int integral = 40, proportional = 4;
  line.AddNumber("drift", clock.drift, -500'000, 500'000, "of the clock, in ppb; positive: it is fast")
      ->capture_default_str();
  line.AddNumber("--integral", integral, 1, 1'000'000, "divisor of the integral term")->capture_default_str();
  line.AddNumber("--proportional", proportional, 1, 1'000'000, "divisor of the proportional term")
      ->capture_default_str();
  line.Read(argc, argv);

  LinuxClockSync law(false, integral, proportional);
  Run(clock, law, kSeconds, [&clock](int second) {
    std::cout << std::setw(4) << second << " s: ahead " << std::setw(10) << clock.ahead << " ns, frequency "
              << std::setw(9) << clock.frequency << '\n';
    if (std::abs(clock.ahead) >= kSecond) std::cout << "        stepped back, and started again\n";
  });
  std::cout << "in the end " << (std::abs(clock.ahead) < 10'000 ? "within" : "not within") << " 10 microseconds\n";
  PrintTable(clock.drift);
  return LastLine({{"corrections", clock.corrections}, {"steps", clock.steps}, {"simulated seconds", kSeconds}});
}
