// What a stream's buffer has read ahead, and the way past it: for code that scans text in place, without a virtual call
// for each character.

#pragma once

#include <cstddef>
#include <streambuf>
#include <string_view>

// Never made: being derived is what makes the borders of another buffer's read area reachable.
struct ReadAhead : std::streambuf {
  // Valid until the buffer is read from; empty at the end of the area and for a buffer without one.
  static std::string_view Of(const std::streambuf& buffer) {
    const char* const next = (buffer.*&ReadAhead::gptr)();
    return {next, static_cast<std::size_t>((buffer.*&ReadAhead::egptr)() - next)};
  }
  // Takes so many of these characters.
  static void Skip(std::streambuf& buffer, int count) { (buffer.*&ReadAhead::gbump)(count); }
};
