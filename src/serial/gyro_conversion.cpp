// Chip table, sensitivity tables and the conversion of samples. Pure.
//
// A full scale that is not in the tables (also the 0 of a configuration that could not be read) has
// the sensitivity 0, so that the axis reads 0 instead of something made up.

#include "serial/gyro_conversion.h"

#include <string.h>

#include <array>

namespace {

using Sensitivities = std::array<float, 4>;

// clang-format off
constexpr Sensitivities kAccelMilliG      = {0.061f, 0.122f, 0.244f, 0.488f};  // mg per LSB
constexpr Sensitivities kGyroMilliDps     = {8.75f,  17.5f,  35.0f,  70.0f};   // mdps per LSB
// mg per unit of a 14-bit value. Samples arrive left-aligned in 16 bits, four units to one of these,
// hence the divisor 4000 where the others have 1000.
constexpr Sensitivities kAccel14BitMilliG = {0.244f, 0.488f, 0.976f, 1.952f};
// clang-format on

float sensitivity(const Sensitivities &table, std::int32_t full_scale) {
  const std::int32_t index = gyro_range_index(full_scale);
  return index < 0 ? 0.0f : table[static_cast<std::size_t>(index)];
}

Axes by_table(const std::int16_t (&raw)[3], float per_unit, float divisor) {
  return {static_cast<float>(raw[0]) * per_unit / divisor,
          static_cast<float>(raw[1]) * per_unit / divisor,
          static_cast<float>(raw[2]) * per_unit / divisor};
}

// The 16 bits span twice the full scale, so -32768 is exactly the negative full scale.
Axes by_full_scale(const std::int16_t (&raw)[3], std::int32_t full_scale) {
  const float span = 2.0f * static_cast<float>(full_scale);
  return by_table(raw, span, 65536.0f);
}

GyroReading convert_accel_and_gyro(const GyroConfig &config, const GyroSample &sample) {
  return {by_table(sample.accel, sensitivity(kAccelMilliG, config.accel_g), 1000.0f),
          by_table(sample.gyro, sensitivity(kGyroMilliDps, config.gyro_dps), 1000.0f)};
}

GyroReading convert_by_full_scale(const GyroConfig &config, const GyroSample &sample) {
  return {by_full_scale(sample.accel, config.accel_g), by_full_scale(sample.gyro, config.gyro_dps)};
}

GyroReading convert_accel(const GyroConfig &config, const GyroSample &sample) {
  return {by_table(sample.accel, sensitivity(kAccelMilliG, config.accel_g), 1000.0f), {}};
}

GyroReading convert_accel_14_bit(const GyroConfig &config, const GyroSample &sample) {
  return {by_table(sample.accel, sensitivity(kAccel14BitMilliG, config.accel_g), 4000.0f), {}};
}

constexpr GyroLineTarget kOutput = GyroLineTarget::kOutputStream;
constexpr GyroLineTarget kStdout = GyroLineTarget::kStandardOutput;

// clang-format off
constexpr GyroChip kChips[] = {
  {.name = "GYRO_LSM6DS3TR", .convert = convert_accel_and_gyro, .line_start = '\n', .six_axes = true,  .line_target = kOutput, .line_in_self_test = true},
  {.name = "GYRO_ICM20602",  .convert = convert_by_full_scale,  .line_start = '\r', .six_axes = true,  .line_target = kOutput, .line_in_self_test = true},
  {.name = "GYRO_KXTJ1900",  .convert = convert_accel,          .line_start = '\n', .six_axes = false, .line_target = kStdout, .line_in_self_test = true},
  {.name = "GYRO_ICM20690",  .convert = convert_by_full_scale,  .line_start = '\r', .six_axes = true,  .line_target = kOutput, .line_in_self_test = true},
  {.name = "GYRO_LIS2DH12",  .convert = convert_accel,          .line_start = '\n', .six_axes = false, .line_target = kOutput, .line_in_self_test = true},
  {.name = "GYRO_LIS2DW12",  .convert = convert_accel_14_bit,   .line_start = '\n', .six_axes = false, .line_target = kStdout, .line_in_self_test = false},
};
// clang-format on

}  // namespace

std::span<const GyroChip> gyro_chips() {
  return kChips;
}

const GyroChip *find_gyro_chip(const GyroIdentity &identity) {
  for (const GyroChip &chip : kChips) {
    if (strncmp(identity.name, chip.name, sizeof identity.name) == 0)
      return &chip;
  }
  return nullptr;
}

std::int32_t gyro_range_index(std::int32_t full_scale) {
  switch (full_scale) {
    case 2:
    case 250:
      return 0;
    case 4:
    case 500:
      return 1;
    case 8:
    case 1000:
      return 2;
    case 16:
    case 2000:
      return 3;
    default:
      return -1;
  }
}
