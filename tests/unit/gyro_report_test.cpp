// The g-sensor's data and attitude lines, byte for byte.

#include "serial/gyro_report.h"

#include <stdlib.h>
#include <string.h>

#include <gtest/gtest.h>

#include <string>

namespace {

const GyroChip *chip_named(const char *name) {
  GyroIdentity identity = {};
  strncpy(identity.name, name, sizeof identity.name - 1);
  return find_gyro_chip(identity);
}

template <typename Print>
std::string printed(Print print) {
  char *text = nullptr;
  std::size_t size = 0;
  FILE *stream = open_memstream(&text, &size);
  print(stream);
  // The line is there before the stream is closed.
  const std::string flushed(text, size);
  fclose(stream);
  EXPECT_EQ(flushed, std::string(text, size));
  free(text);
  return flushed;
}

std::string data_line(const char *name, const GyroSample &sample, const GyroReading &reading) {
  return printed(
      [&](FILE *stream) { print_gyro_data(stream, *chip_named(name), sample, reading); });
}

constexpr GyroSample kSample = {.accel = {16384, -32768, -1},
                                .gyro = {1, 32767, -2},
                                .unused = {1, 2, 3, 4, 5, 6, 7, 8},
                                .seconds = 1234,
                                .microseconds = 56789};
constexpr GyroReading kReading = {.accel = {1.0f, -2.0f, -0.0625f},
                                  .rate = {0.5f, 1999.9375f, -125.25f}};

TEST(GyroReport, six_axis_line_has_patterns_and_signed_values) {
  const std::string body =
      "[time=    1234.057]"
      "[accel-x:0x00004000 => +1.000g][accel-y:0xFFFF8000 => -2.000g]"
      "[accel-z:0xFFFFFFFF => -0.062g]"
      "[gyro-x:0x00000001 => +0.500dps][gyro-y:0x00007FFF => +1999.938dps]"
      "[gyro-z:0xFFFFFFFE => -125.250dps]";
  EXPECT_EQ(data_line("GYRO_LSM6DS3TR", kSample, kReading), "\n" + body);
  EXPECT_EQ(data_line("GYRO_ICM20602", kSample, kReading), "\r" + body);
  EXPECT_EQ(data_line("GYRO_ICM20690", kSample, kReading), "\r" + body);
}

TEST(GyroReport, three_axis_line_ends_after_the_acceleration) {
  for (const char *name : {"GYRO_KXTJ1900", "GYRO_LIS2DH12", "GYRO_LIS2DW12"}) {
    EXPECT_EQ(data_line(name, kSample, kReading),
              "\n[time=    1234.057]"
              "[accel-x:0x00004000 => +1.000g][accel-y:0xFFFF8000 => -2.000g]"
              "[accel-z:0xFFFFFFFF => -0.062g]")
        << name;
  }
}

TEST(GyroReport, time_is_padded_in_seconds_and_rounded_in_milliseconds) {
  const struct {
    std::int32_t seconds, microseconds;
    const char *text;
  } rows[] = {
      {0, 0, "\n[time=       0.000]"},
      {12345678, 1499, "\n[time=12345678.001]"},
      {1700000000, 999400, "\n[time=1700000000.999]"},
      // Rounded up without a carry into the seconds.
      {7, 999600, "\n[time=       7.1000]"},
  };
  for (const auto &row : rows) {
    GyroSample sample = {};
    sample.seconds = row.seconds;
    sample.microseconds = row.microseconds;
    const std::string line = data_line("GYRO_KXTJ1900", sample, {});
    EXPECT_EQ(line.substr(0, strlen(row.text)), row.text);
  }
}

TEST(GyroReport, attitude_line_ends_with_a_line_feed) {
  EXPECT_EQ(printed([](FILE *stream) {
              print_attitude(stream, {.pitch = -0.5f, .roll = 12.25f, .yaw = 0.0f});
            }),
            "[Pitch:-0.500][Roll:+12.250][Yaw:+0.000]\n");
}

}  // namespace
