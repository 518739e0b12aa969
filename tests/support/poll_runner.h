// Runs the poll loop until something has happened or a bound of time is over.
//
// Under a VirtualTime the bound is virtual; otherwise it is real, and only a failing test waits for it.

#pragma once

#include <functional>

// True when `done` became true within `bound` milliseconds; it is asked before each pass. What is due at the
// very end of the bound still happens. Ends early, with the last answer of `done`, when the loop quits.
bool PollUntil(const std::function<bool()>& done, int bound = 10'000);

// Lets the loop run for this long, in milliseconds.
void PollFor(int duration);

// Single passes that don't wait.
void PollPasses(int count);
