// Raw samples of the motion sensor to g and degrees per second, for each chip that boards carry.
//
// Sensitivities and scales are single precision, as everything that is computed from samples here:
// the board's processor has a single-precision unit.

#ifndef BENCHRIG_SERIAL_GYRO_CONVERSION_H
#define BENCHRIG_SERIAL_GYRO_CONVERSION_H

#include "platform/driver/gyro.h"

#include <cstdint>
#include <span>

struct Axes {
  float x, y, z;
};

struct GyroReading {
  Axes accel;  // g
  Axes rate;   // degrees per second; zero on a chip without a gyroscope
};

// Where a chip's data line goes in the self-test, whose output stream is the log file.
enum class GyroLineTarget : std::uint8_t {
  kOutputStream,
  kStandardOutput,
};

struct GyroChip {
  const char *name;
  GyroReading (*convert)(const GyroConfig &config, const GyroSample &sample);
  char line_start;  // a data line begins, and does not end, with its line feed or carriage return
  bool six_axes;
  GyroLineTarget line_target;
  bool line_in_self_test;
};

// The supported chips, in the order in which names are compared.
std::span<const GyroChip> gyro_chips();

// The row of the chip that the identity record names, or null. The name need not be terminated.
const GyroChip *find_gyro_chip(const GyroIdentity &identity);

// The position of a full scale in the sensitivity tables: 0 to 3 for 2, 4, 8 and 16 g as for 250,
// 500, 1000 and 2000 dps; -1 for any other value.
std::int32_t gyro_range_index(std::int32_t full_scale);

#endif
