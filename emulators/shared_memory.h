// Memory that a process shares with those that it starts.

#pragma once

#include <sys/mman.h>

#include <new>

#include "emulators/must.h"

// For good. Throws ErrnoError.
template <class T>
T& MakeShared() {
  void* const place = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Must(place != MAP_FAILED, "share memory");
  return *new (place) T{};
}
