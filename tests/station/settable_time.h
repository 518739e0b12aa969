// The time that settimeofday sets in the station's tests; nullptr: it is only noted.

#pragma once

#include "emulators/virtual_time.h"

inline VirtualTime* settable_time = nullptr;
