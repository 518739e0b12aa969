// Counts what the program asks the heap for. Include it in one file of a program only: it replaces operator new.

#pragma once

#include <cstdint>
#include <cstdlib>
#include <new>

namespace {
int64_t news = 0;
}

[[gnu::noinline]] void* operator new(size_t size) {
  ++news;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}
