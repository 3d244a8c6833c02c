// The motion sensors that a board may carry, and the motion that a time-line file describes.

#ifndef VBOARD_BOARD_GYRO_CHIPS_H
#define VBOARD_BOARD_GYRO_CHIPS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vboard {

struct GyroChip {
  const char *name;    // what the driver calls it
  std::uint32_t type;  // its identification register
  double accel_steps;  // raw steps of a full scale of acceleration, whatever the range
  double gyro_steps;   // of a full scale of rate; 0 for a chip without a gyroscope
};

inline constexpr int kAccelRanges[] = {2, 4, 8, 16};          // g
inline constexpr int kGyroRanges[] = {250, 500, 1000, 2000};  // degrees per second

std::span<const GyroChip> gyro_chips();
const GyroChip *find_gyro_chip(std::string_view name);  // null for an unknown name
bool is_gyro_chip(std::string_view name);
bool is_accel_range(std::int64_t g);
bool is_gyro_range(std::int64_t dps);

// One line of a time line: what the sensor feels from `seconds` on, until the next line.
struct Motion {
  double seconds;
  double accel[3];  // g
  double gyro[3];   // degrees per second
};

inline constexpr Motion kAtRest = {0, {0, 0, 1}, {0, 0, 0}};

// Takes the next line from `text`: true with `out` filled, false at the end. Comments (#) and blank
// lines are skipped; a line that is not seven numbers counts in `bad_lines` and is skipped as well.
bool next_motion(std::string_view &text, Motion &out, int &bad_lines);

// Physical to raw, to the nearest step; a value beyond the range saturates as the chips do.
void raw_acceleration(const GyroChip &chip, const double (&g)[3], int range_g,
                      std::int16_t (&out)[3]);
void raw_rate(const GyroChip &chip, const double (&dps)[3], int range_dps, std::int16_t (&out)[3]);

}  // namespace vboard

#endif
