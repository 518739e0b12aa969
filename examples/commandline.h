// What the examples have in common: a command line on CLI11, a loop that ctrl-C ends, and a last line that counts what
// was done.
//
//   int main(int argc, char** argv) {
//     CommandLine line("What it does.");
//     int seconds = 0;
//     line.AddSeconds(seconds);
//     line.Read(argc, argv);
//     ...
//     RunLoop(seconds);
//     return LastLine({{"fixes", fixes}});
//   }
//
// Exit status: 0 when something was done, and after --help; 2 for a command line that can't be taken; 1 otherwise.

#pragma once

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <iostream>
#include <string>
#include <utility>

#include "examples/timer.h"
#include "runtime/pollprocessor.h"
#include "station/wholenumber.h"

class CommandLine : public CLI::App {
 public:
  static constexpr int kLongest = 2'000'000;  // seconds; a timer's milliseconds are an int

  explicit CommandLine(const std::string& what_it_does) : CLI::App(what_it_does) {}

  // A whole number in base ten from `least` to `most`; `value` is what it is without the option. A name without dashes
  // is a place: "drift".
  CLI::Option* AddNumber(const std::string& name, int& value, int least, int most, const std::string& what) {
    return add_option(name, value, what)->transform(WholeNumber(least, most))->type_name(WholeNumberName(least, most));
  }

  // For programs that run on the loop; the number is RunLoop's.
  void AddSeconds(int& seconds) {
    AddNumber("--seconds", seconds, 1, kLongest, "end after so many seconds");
    _loops = true;
  }

  // After --help and after an error, which is told on standard error, the program ends here. Programs that run on the
  // loop are ended by ctrl-C and SIGTERM through the loop from now on.
  void Read(int argc, char** argv) {
    try {
      parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      const bool helped = exit(error) == 0;
      std::exit(!helped ? 2 : std::cout.flush() ? 0 : 1);
    }
    if (!_loops) return;
    PollProcessor::Instance().QuitOnSignal(SIGINT);
    PollProcessor::Instance().QuitOnSignal(SIGTERM);
  }

 private:
  bool _loops = false;
};

// Turns the loop until ctrl-C, until so many seconds have gone by (0: no end), or until `done`, which is asked between
// the passes.
inline void RunLoop(
    int seconds, const std::function<bool()>& done = [] { return false; }) {
  bool over = false;
  const Timer end(seconds > 0 ? seconds * 1'000 : -1, [&over] { over = true; });
  while (!over && !done() && PollProcessor::Instance().Poll(-1)) continue;
}

// Prints "done: fixes 12, times 13" and returns the exit status. The first count is what the program is for: where it
// is 0, nothing was done.
inline int LastLine(std::initializer_list<std::pair<const char*, int64_t>> counts, std::ostream& out = std::cout) {
  const char* separator = "done: ";
  for (const auto& [what, count] : counts) out << std::exchange(separator, ", ") << what << ' ' << count;
  out << std::endl;
  if (std::cout.flush()) return counts.begin()->second > 0 ? 0 : 1;
  std::cerr << "ERROR: unable to write to standard output" << std::endl;
  return 1;
}
