// The form that the records of all measuring instruments share.
//
// A record is handed out by reference and lives for the duration of its callback; what the listener keeps, it copies.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

template <size_t Count>
struct MeasurementRecord {
  // When it was measured, UTC since 1970; what each instrument puts here stands with its record.
  int32_t seconds = 0;
  int32_t nanoseconds = 0;
  std::array<double, Count> values = {};
  uint32_t errorFlags = 0;  // bits by instrument
  // Always 0.
  uint16_t reserved16 = 0;
  std::array<uint8_t, 6> reserved8 = {};
};
