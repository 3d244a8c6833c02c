// Chip names, range positions, and raw values to g and degrees per second.

#include "serial/gyro_conversion.h"

#include <string.h>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

GyroIdentity identity_of(const char *name) {
  GyroIdentity identity = {};
  // A name that fills the field has no terminator.
  memcpy(identity.name, name, std::min(strlen(name), sizeof identity.name));
  return identity;
}

GyroReading convert(const char *name, const GyroConfig &config, const GyroSample &sample) {
  const GyroChip *chip = find_gyro_chip(identity_of(name));
  EXPECT_NE(chip, nullptr) << name;
  return chip != nullptr ? chip->convert(config, sample) : GyroReading{};
}

GyroConfig ranges(std::int32_t accel_g, std::int32_t gyro_dps) {
  GyroConfig config = {};
  config.accel_g = accel_g;
  config.gyro_dps = gyro_dps;
  return config;
}

GyroSample raw(std::int16_t ax, std::int16_t ay, std::int16_t az, std::int16_t gx = 0,
               std::int16_t gy = 0, std::int16_t gz = 0) {
  GyroSample sample = {};
  const std::int16_t accel[3] = {ax, ay, az};
  const std::int16_t gyro[3] = {gx, gy, gz};
  memcpy(sample.accel, accel, sizeof accel);
  memcpy(sample.gyro, gyro, sizeof gyro);
  return sample;
}

TEST(GyroRange, has_four_positions_shared_by_g_and_dps) {
  const struct {
    std::int32_t full_scale, index;
  } rows[] = {{2, 0}, {4, 1}, {8, 2}, {16, 3}, {250, 0}, {500, 1}, {1000, 2}, {2000, 3}};
  for (const auto &row : rows)
    EXPECT_EQ(gyro_range_index(row.full_scale), row.index) << row.full_scale;
}

TEST(GyroRange, other_values_have_no_position) {
  for (const std::int32_t value :
       {0, 1, 3, 5, 15, 17, 32, 125, 249, 251, 4000, -2, -250, INT32_MAX, INT32_MIN})
    EXPECT_EQ(gyro_range_index(value), -1) << value;
}

TEST(GyroChip, every_supported_name_is_found_in_order) {
  const char *const names[] = {"GYRO_LSM6DS3TR", "GYRO_ICM20602", "GYRO_KXTJ1900",
                               "GYRO_ICM20690",  "GYRO_LIS2DH12", "GYRO_LIS2DW12"};
  ASSERT_EQ(gyro_chips().size(), std::size(names));
  for (std::size_t i = 0; i < std::size(names); ++i) {
    EXPECT_STREQ(gyro_chips()[i].name, names[i]);
    EXPECT_EQ(find_gyro_chip(identity_of(names[i])), &gyro_chips()[i]);
  }
}

TEST(GyroChip, names_are_compared_whole) {
  EXPECT_EQ(find_gyro_chip(identity_of("")), nullptr);
  EXPECT_EQ(find_gyro_chip(identity_of("GYRO_ICM2060")), nullptr);
  EXPECT_EQ(find_gyro_chip(identity_of("GYRO_ICM206020")), nullptr);
  EXPECT_EQ(find_gyro_chip(identity_of("gyro_icm20602")), nullptr);
  // A record whose name fills all 32 bytes, without a terminator.
  EXPECT_EQ(find_gyro_chip(identity_of("GYRO_LSM6DS3TR-and-twenty-more-x")), nullptr);
}

TEST(GyroChip, data_lines_differ_by_chip) {
  const struct {
    const char *name;
    char start;
    bool six_axes;
    GyroLineTarget target;
    bool in_self_test;
  } rows[] = {
      {"GYRO_LSM6DS3TR", '\n', true, GyroLineTarget::kOutputStream, true},
      {"GYRO_ICM20602", '\r', true, GyroLineTarget::kOutputStream, true},
      {"GYRO_KXTJ1900", '\n', false, GyroLineTarget::kStandardOutput, true},
      {"GYRO_ICM20690", '\r', true, GyroLineTarget::kOutputStream, true},
      {"GYRO_LIS2DH12", '\n', false, GyroLineTarget::kOutputStream, true},
      {"GYRO_LIS2DW12", '\n', false, GyroLineTarget::kStandardOutput, false},
  };
  for (const auto &row : rows) {
    const GyroChip *chip = find_gyro_chip(identity_of(row.name));
    ASSERT_NE(chip, nullptr) << row.name;
    EXPECT_EQ(chip->line_start, row.start) << row.name;
    EXPECT_EQ(chip->six_axes, row.six_axes) << row.name;
    EXPECT_EQ(chip->line_target, row.target) << row.name;
    EXPECT_EQ(chip->line_in_self_test, row.in_self_test) << row.name;
  }
}

TEST(GyroConversion, half_of_the_range_at_2_g_for_each_chip) {
  const struct {
    const char *name;
    float g;
  } rows[] = {
      {"GYRO_LSM6DS3TR", 0.999424f}, {"GYRO_ICM20602", 1.0f},      {"GYRO_KXTJ1900", 0.999424f},
      {"GYRO_ICM20690", 1.0f},       {"GYRO_LIS2DH12", 0.999424f}, {"GYRO_LIS2DW12", 0.999424f},
  };
  for (const auto &row : rows) {
    const GyroReading reading = convert(row.name, ranges(2, 250), raw(0, -16384, 16384));
    EXPECT_FLOAT_EQ(reading.accel.x, 0.0f) << row.name;
    EXPECT_FLOAT_EQ(reading.accel.y, -row.g) << row.name;
    EXPECT_FLOAT_EQ(reading.accel.z, row.g) << row.name;
  }
}

TEST(GyroConversion, accel_sensitivity_follows_the_range) {
  // 10000 x 0.061, 0.122, 0.244 and 0.488 mg; the 14-bit chip's table is four times that over 4000.
  const struct {
    std::int32_t accel_g;
    float g;
  } rows[] = {{2, 0.61f}, {4, 1.22f}, {8, 2.44f}, {16, 4.88f}};
  for (const auto &row : rows) {
    for (const char *name : {"GYRO_LSM6DS3TR", "GYRO_KXTJ1900", "GYRO_LIS2DH12", "GYRO_LIS2DW12"})
      EXPECT_FLOAT_EQ(convert(name, ranges(row.accel_g, 250), raw(10000, 0, 0)).accel.x, row.g)
          << name << " at " << row.accel_g;
  }
}

TEST(GyroConversion, rate_sensitivity_follows_the_range) {
  const struct {
    std::int32_t gyro_dps;
    float dps;
  } rows[] = {{250, 87.5f}, {500, 175.0f}, {1000, 350.0f}, {2000, 700.0f}};
  for (const auto &row : rows)
    EXPECT_FLOAT_EQ(
        convert("GYRO_LSM6DS3TR", ranges(2, row.gyro_dps), raw(0, 0, 0, 10000, 0, 0)).rate.x,
        row.dps)
        << row.gyro_dps;
}

TEST(GyroConversion, chips_without_a_gyroscope_read_zero_rates) {
  for (const char *name : {"GYRO_KXTJ1900", "GYRO_LIS2DH12", "GYRO_LIS2DW12"}) {
    const GyroReading reading = convert(name, ranges(2, 2000), raw(1, 2, 3, 4000, -5000, 6000));
    EXPECT_EQ(reading.rate.x, 0.0f) << name;
    EXPECT_EQ(reading.rate.y, 0.0f) << name;
    EXPECT_EQ(reading.rate.z, 0.0f) << name;
  }
}

TEST(GyroConversion, full_scale_chips_reach_exactly_the_negative_full_scale) {
  for (const char *name : {"GYRO_ICM20602", "GYRO_ICM20690"}) {
    const GyroReading reading =
        convert(name, ranges(16, 2000), raw(-32768, 0, 0, -32768, 16384, -16384));
    EXPECT_EQ(reading.accel.x, -16.0f) << name;
    EXPECT_EQ(reading.rate.x, -2000.0f) << name;
    EXPECT_EQ(reading.rate.y, 1000.0f) << name;
    EXPECT_EQ(reading.rate.z, -1000.0f) << name;
  }
}

// The chips' manuals give negative values as the distance from the lowest one.
TEST(GyroConversion, full_scale_chips_convert_every_negative_value) {
  for (int value = -32768; value < 0; ++value) {
    const float expected = static_cast<float>(-(32768 - (value & 0x7FFF)) * 4) / 65536.0f;
    const float g =
        convert("GYRO_ICM20602", ranges(2, 250), raw(static_cast<std::int16_t>(value), 0, 0))
            .accel.x;
    ASSERT_EQ(g, expected) << value;
  }
}

TEST(GyroConversion, axes_keep_their_order) {
  const GyroReading reading =
      convert("GYRO_ICM20602", ranges(2, 250), raw(16384, 8192, -4096, 16384, 8192, -4096));
  EXPECT_EQ(reading.accel.x, 1.0f);
  EXPECT_EQ(reading.accel.y, 0.5f);
  EXPECT_EQ(reading.accel.z, -0.25f);
  EXPECT_EQ(reading.rate.x, 125.0f);
  EXPECT_EQ(reading.rate.y, 62.5f);
  EXPECT_EQ(reading.rate.z, -31.25f);
}

TEST(GyroConversion, unknown_range_reads_zero_and_nothing_outside_the_tables) {
  for (const std::int32_t full_scale : {0, 3, -1, 32, 100000}) {
    for (const char *name : {"GYRO_LSM6DS3TR", "GYRO_KXTJ1900", "GYRO_LIS2DH12", "GYRO_LIS2DW12"}) {
      const GyroReading reading =
          convert(name, ranges(full_scale, full_scale), raw(32767, -32768, 1, 32767, -32768, 1));
      for (const float value : {reading.accel.x, reading.accel.y, reading.accel.z, reading.rate.x,
                                reading.rate.y, reading.rate.z})
        EXPECT_EQ(value, 0.0f) << name << " at " << full_scale;
    }
  }
}

}  // namespace
