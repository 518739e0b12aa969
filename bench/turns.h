// Jobs that take turns within one measurement, so that their ratios don't depend on what else the machine does.
//
// The first job is our own, the others are its peers. Medians over the rounds are reported: an interrupted round
// doesn't count. Register the benchmark with ->UseManualTime(); the time shown is that of the own job.

#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

// A short job many times over in one run, where a call of a std::function would count.
template <typename Job>
std::function<void()> Batch(Job job) {
  return [job] {
    for (int i = 0; i < 1000; ++i) job();
  };
}

class Turns {
 public:
  struct Job {
    std::string name;
    std::function<void()> run;
  };

  explicit Turns(std::vector<Job> jobs) : _jobs(std::move(jobs)), _seconds(_jobs.size()) {}

  // Runs each job this many times; returns the seconds that one run of the own job took.
  double Round(int runs = 1) {
    for (std::size_t job = 0; job < _jobs.size(); ++job) {
      const auto start = std::chrono::steady_clock::now();
      for (int i = 0; i < runs; ++i) _jobs[job].run();
      const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
      _seconds[job].push_back(took.count() / runs);
    }
    return _seconds[0].back();
  }

  // The median of one run of a job, in seconds.
  double Median(std::size_t job) const { return _MedianOf(_seconds[job]); }

  // The fastest run of a job, in seconds: for jobs whose memory makes their rounds differ.
  double Best(std::size_t job) const { return *std::min_element(_seconds[job].begin(), _seconds[job].end()); }

  // The median of what a job takes longer than another one, in seconds. Taken round by round, so that a slow stretch of
  // the machine counts for both.
  double MedianAbove(std::size_t job, std::size_t base) const {
    std::vector<double> above = _seconds[job];
    for (std::size_t round = 0; round < above.size(); ++round) above[round] -= _seconds[base][round];
    return _MedianOf(std::move(above));
  }

  // The whole benchmark: rounds as long as the library asks for them, then one counter "own/NAME" for each peer.
  // Below 1, the own job is the faster one.
  void Measure(benchmark::State& state, int runs = 1) {
    for ([[maybe_unused]] auto _ : state) state.SetIterationTime(Round(runs));
    for (std::size_t job = 1; job < _jobs.size(); ++job)
      state.counters["own/" + _jobs[job].name] = Median(0) / Median(job);
  }

 private:
  static double _MedianOf(std::vector<double> seconds) {
    const auto middle = seconds.begin() + static_cast<std::ptrdiff_t>(seconds.size() / 2);
    std::nth_element(seconds.begin(), middle, seconds.end());
    return *middle;
  }

  std::vector<Job> _jobs;
  std::vector<std::vector<double>> _seconds;
};
