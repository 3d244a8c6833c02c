#include "vboard/board/gyro_chips.h"

#include "vboard/base/decimal.h"

#include <algorithm>
#include <iterator>

namespace vboard {
namespace {

// Two families of scales. The one counts in 0.061 mg at 2 g and 8.75 mdps at 250 degrees per second
// (its GYRO_LIS2DW12 delivers 14 bits, left justified: 0.244 mg for four steps), the other divides
// each range by 32768.
constexpr double kAccelSteps = 2000 / 0.061;
constexpr double kGyroSteps = 250'000 / 8.75;

// clang-format off
constexpr GyroChip kChips[] = {
    {.name = "GYRO_LSM6DS3TR", .type = 0x69, .accel_steps = kAccelSteps, .gyro_steps = kGyroSteps},
    {.name = "GYRO_ICM20602",  .type = 0x12, .accel_steps = 32768,       .gyro_steps = 32768},
    {.name = "GYRO_KXTJ1900",  .type = 0x08, .accel_steps = kAccelSteps, .gyro_steps = 0},
    {.name = "GYRO_ICM20690",  .type = 0x20, .accel_steps = 32768,       .gyro_steps = 32768},
    {.name = "GYRO_LIS2DH12",  .type = 0x33, .accel_steps = kAccelSteps, .gyro_steps = 0},
    {.name = "GYRO_LIS2DW12",  .type = 0x44, .accel_steps = kAccelSteps, .gyro_steps = 0},
};
// clang-format on

// Rounded by hand: floor() would be the only reason to load the mathematics library.
std::int16_t to_raw(double steps) {
  const double clamped = std::clamp(steps, -32768.0, 32767.0);
  return static_cast<std::int16_t>(clamped < 0 ? clamped - 0.5 : clamped + 0.5);
}

void to_raw(const double (&values)[3], double steps_per_unit, std::int16_t (&out)[3]) {
  for (int axis = 0; axis < 3; ++axis)
    out[axis] = to_raw(values[axis] * steps_per_unit);
}

}  // namespace

std::span<const GyroChip> gyro_chips() {
  return kChips;
}

const GyroChip *find_gyro_chip(std::string_view name) {
  for (const GyroChip &chip : kChips) {
    if (name == chip.name)
      return &chip;
  }
  return nullptr;
}

bool is_gyro_chip(std::string_view name) {
  return find_gyro_chip(name) != nullptr;
}

bool is_accel_range(std::int64_t g) {
  return std::find(std::begin(kAccelRanges), std::end(kAccelRanges), g) != std::end(kAccelRanges);
}

bool is_gyro_range(std::int64_t dps) {
  return std::find(std::begin(kGyroRanges), std::end(kGyroRanges), dps) != std::end(kGyroRanges);
}

bool next_motion(std::string_view &text, Motion &out, int &bad_lines) {
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    line = line.substr(0, line.find('#'));
    if (line.find_first_not_of(" \t\r") == std::string_view::npos)
      continue;

    Motion motion;
    double *fields[] = {&motion.seconds, &motion.accel[0], &motion.accel[1], &motion.accel[2],
                        &motion.gyro[0], &motion.gyro[1],  &motion.gyro[2]};
    bool good = true;
    for (double *field : fields)
      good = good && take_decimal(line, *field);
    if (good && line.find_first_not_of(" \t\r") == std::string_view::npos) {
      out = motion;
      return true;
    }
    ++bad_lines;
  }
  return false;
}

void raw_acceleration(const GyroChip &chip, const double (&g)[3], int range_g,
                      std::int16_t (&out)[3]) {
  to_raw(g, chip.accel_steps / range_g, out);
}

void raw_rate(const GyroChip &chip, const double (&dps)[3], int range_dps, std::int16_t (&out)[3]) {
  to_raw(dps, chip.gyro_steps / range_dps, out);
}

}  // namespace vboard
