// The virtual board's motion sensor.

#include "model_harness.h"
#include "platform/driver/gyro.h"
#include "vboard/board/gyro_chips.h"

#include <errno.h>
#include <string.h>

#include <gtest/gtest.h>

using namespace vboard;

namespace {

constexpr BoardTime kMillisecond = kSecond / 1000;
constexpr double kOneG[3] = {0, 0, 1};

constexpr char kNode[] = "model = gyro\nmedium = motion\nchip = GYRO_ICM20602\n";

ssize_t read_sample(ModelHarness &harness, GyroSample &sample) {
  return harness.read(&sample, sizeof sample);
}

BoardTime readable_at(ModelHarness &harness) {
  const Readiness ready = harness.ready(POLLIN);
  return ready.events != 0 ? fake_core.now : ready.next;
}

GyroConfig config_of(ModelHarness &harness) {
  GyroConfig config = {};
  EXPECT_EQ(harness.request(HAT_GYRO_READ_CONFIG, config), 0);
  return config;
}

}  // namespace

TEST(GyroChips, one_g_is_the_steps_of_each_data_sheet) {
  struct Row {
    const char *chip;
    int range;
    int raw;
  };
  // 1 g / 0.061 mg, 0.122 mg, ...; 65536 / (2 * range)
  constexpr Row kRows[] = {
      {"GYRO_LSM6DS3TR", 2, 16393}, {"GYRO_LSM6DS3TR", 16, 2049}, {"GYRO_ICM20602", 2, 16384},
      {"GYRO_ICM20602", 4, 8192},   {"GYRO_KXTJ1900", 2, 16393},  {"GYRO_ICM20690", 16, 2048},
      {"GYRO_LIS2DH12", 8, 4098},   {"GYRO_LIS2DW12", 2, 16393},
  };
  for (const Row &row : kRows) {
    std::int16_t raw[3];
    raw_acceleration(*find_gyro_chip(row.chip), kOneG, row.range, raw);
    EXPECT_EQ(raw[2], row.raw) << row.chip << " at " << row.range << " g";
    EXPECT_EQ(raw[0], 0);
  }
}

TEST(GyroChips, values_beyond_the_range_saturate) {
  std::int16_t raw[3];
  raw_acceleration(*find_gyro_chip("GYRO_ICM20602"), {3.0, -3.0, -2.0}, 2, raw);
  EXPECT_EQ(raw[0], 32767);
  EXPECT_EQ(raw[1], -32768);
  EXPECT_EQ(raw[2], -32768);
  raw_rate(*find_gyro_chip("GYRO_LSM6DS3TR"), {8.75, -8.75, 99999}, 250, raw);
  EXPECT_EQ(raw[0], 1000);
  EXPECT_EQ(raw[1], -1000);
  EXPECT_EQ(raw[2], 32767);
}

TEST(GyroChips, accelerometers_alone_feel_no_rotation) {
  for (const char *name : {"GYRO_KXTJ1900", "GYRO_LIS2DH12", "GYRO_LIS2DW12"}) {
    std::int16_t raw[3] = {1, 1, 1};
    raw_rate(*find_gyro_chip(name), {100, 100, 100}, 250, raw);
    EXPECT_EQ(raw[0] | raw[1] | raw[2], 0) << name;
  }
}

TEST(GyroChips, time_line_skips_comments_and_counts_bad_lines) {
  std::string_view text =
      "# comment\n\n 0 0 0 1 0 0 0 # at rest\n1.5 -.5 +0.25 0.866 10 -20 30.5\n2 0 0\n3 0 0 1 0 0 "
      "0 9\nx\n4 0 0 1 0 0 0";
  Motion motion;
  int bad = 0;
  ASSERT_TRUE(next_motion(text, motion, bad));
  EXPECT_EQ(motion.seconds, 0);
  EXPECT_EQ(motion.accel[2], 1);
  ASSERT_TRUE(next_motion(text, motion, bad));
  EXPECT_EQ(motion.seconds, 1.5);
  EXPECT_EQ(motion.accel[0], -0.5);
  EXPECT_EQ(motion.accel[1], 0.25);
  EXPECT_EQ(motion.gyro[1], -20);
  EXPECT_EQ(motion.gyro[2], 30.5);
  EXPECT_EQ(bad, 0);
  ASSERT_TRUE(next_motion(text, motion, bad));
  EXPECT_EQ(motion.seconds, 4);
  EXPECT_EQ(bad, 3);
  EXPECT_FALSE(next_motion(text, motion, bad));
}

TEST(GyroModel, tells_name_and_type_of_its_chip) {
  ModelHarness board(kNode);
  ASSERT_EQ(board.open(), 0);
  GyroIdentity identity = {};
  ASSERT_EQ(board.request(HAT_GYRO_INIT, identity), 0);
  EXPECT_STREQ(identity.name, "GYRO_ICM20602");
  EXPECT_EQ(identity.type, 0x12u);
}

TEST(GyroModel, tells_an_unknown_chip_by_its_name) {
  ModelHarness board("model = gyro\nchip = GYRO_OTHER\nchip_type = 0x77\n");
  ASSERT_EQ(board.open(), 0);
  GyroIdentity identity = {};
  ASSERT_EQ(board.request(HAT_GYRO_INIT, identity), 0);
  EXPECT_STREQ(identity.name, "GYRO_OTHER");
  EXPECT_EQ(identity.type, 0x77u);
}

TEST(GyroModel, first_sample_is_due_one_poll_period_after_the_open) {
  ModelHarness board(kNode);
  fake_core.now = 7 * kSecond;
  ASSERT_EQ(board.open(), 0);
  GyroSample sample;
  EXPECT_EQ(readable_at(board), 7 * kSecond + 50 * kMillisecond);
  EXPECT_EQ(read_sample(board, sample), -EAGAIN);
  fake_core.now += 50 * kMillisecond;
  EXPECT_EQ(read_sample(board, sample), 28);
  EXPECT_EQ(readable_at(board), 7 * kSecond + 100 * kMillisecond);
  EXPECT_EQ(read_sample(board, sample), -EAGAIN);
}

TEST(GyroModel, sample_carries_the_motion_and_the_calendar_time_of_its_moment) {
  ModelHarness board(kNode);
  board.write_file("media/motion", "0 0 0 1 0 0 0\n0.075 0.5 -0.5 0.25 125 0 -125\n");
  fake_core.now = 10 * kSecond;
  ASSERT_EQ(board.open(), 0);
  GyroSample sample;
  fake_core.now += 50 * kMillisecond;
  ASSERT_EQ(read_sample(board, sample), 28);
  EXPECT_EQ(sample.accel[0], 0);
  EXPECT_EQ(sample.accel[2], 16384);
  // The reader comes late: the sample is still that of its moment.
  fake_core.now += 70 * kMillisecond;
  ASSERT_EQ(read_sample(board, sample), 28);
  EXPECT_EQ(sample.accel[0], 8192);
  EXPECT_EQ(sample.accel[1], -8192);
  EXPECT_EQ(sample.accel[2], 4096);
  EXPECT_EQ(sample.gyro[0], 16384);
  EXPECT_EQ(sample.gyro[2], -16384);
  EXPECT_EQ(sample.seconds, 1'704'445'503 + 10);
  EXPECT_EQ(sample.microseconds, 100'000);
}

TEST(GyroModel, keeps_samples_for_a_late_reader_and_loses_the_oldest) {
  ModelHarness board(kNode);
  ASSERT_EQ(board.open(), 0);
  GyroSample sample;
  fake_core.now = 40 * 50 * kMillisecond;
  int samples = 0;
  while (read_sample(board, sample) == 28)
    ++samples;
  EXPECT_EQ(samples, 32);
  EXPECT_EQ(readable_at(board), 41 * 50 * kMillisecond);
}

TEST(GyroModel, a_short_buffer_takes_the_front_of_one_sample) {
  ModelHarness board(kNode);
  board.write_file("media/motion", "0 1 0 0 0 0 0\n");
  ASSERT_EQ(board.open(), 0);
  fake_core.now = 50 * kMillisecond;
  std::int16_t front[2] = {};
  EXPECT_EQ(board.read(front, 2), 2);
  EXPECT_EQ(front[0], 16384);
  EXPECT_EQ(readable_at(board), 100 * kMillisecond);
}

TEST(GyroModel, a_missing_time_line_is_a_board_at_rest) {
  ModelHarness board("model = gyro\nchip = GYRO_ICM20602\n");
  ASSERT_EQ(board.open(), 0);
  fake_core.now = kSecond;
  GyroSample sample;
  ASSERT_EQ(read_sample(board, sample), 28);
  EXPECT_EQ(sample.accel[0], 0);
  EXPECT_EQ(sample.accel[1], 0);
  EXPECT_EQ(sample.accel[2], 16384);
}

TEST(GyroModel, poll_period_is_set_and_kept) {
  ModelHarness board(kNode);
  ASSERT_EQ(board.open(), 0);
  GyroConfig config = {
      .poll_ms = 100, .accel_g = 0, .gyro_dps = 0, .wake_on_motion = 0, .reserved = 0};
  fake_core.now = kSecond;
  ASSERT_EQ(board.request(HAT_GYRO_TMR_SET, config), 0);
  EXPECT_EQ(readable_at(board), kSecond + 100 * kMillisecond);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(readable_at(board), kSecond + 100 * kMillisecond);
  config.poll_ms = 0;
  EXPECT_EQ(board.request(HAT_GYRO_TMR_SET, config), -EINVAL);
  config.poll_ms = -1;
  EXPECT_EQ(board.request(HAT_GYRO_TMR_SET, config), -EINVAL);
}

TEST(GyroModel, ranges_are_set_and_kept_and_scale_the_samples) {
  ModelHarness board(kNode);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(config_of(board).accel_g, 2);
  EXPECT_EQ(config_of(board).gyro_dps, 250);
  GyroConfig config = {
      .poll_ms = 0, .accel_g = 16, .gyro_dps = 2000, .wake_on_motion = 0, .reserved = 0};
  ASSERT_EQ(board.request(HAT_GYRO_SET_RNG, config), 0);
  fake_core.now = kSecond;
  GyroSample sample;
  ASSERT_EQ(read_sample(board, sample), 28);
  EXPECT_EQ(sample.accel[2], 2048);
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(config_of(board).accel_g, 16);
  EXPECT_EQ(config_of(board).gyro_dps, 2000);
}

TEST(GyroModel, ranges_outside_the_chips_are_refused) {
  ModelHarness board(kNode);
  ASSERT_EQ(board.open(), 0);
  GyroConfig config = {
      .poll_ms = 0, .accel_g = 3, .gyro_dps = 250, .wake_on_motion = 0, .reserved = 0};
  EXPECT_EQ(board.request(HAT_GYRO_SET_RNG, config), -EINVAL);
  config = {.poll_ms = 0, .accel_g = 4, .gyro_dps = 300, .wake_on_motion = 0, .reserved = 0};
  EXPECT_EQ(board.request(HAT_GYRO_SET_RNG, config), -EINVAL);
  EXPECT_EQ(config_of(board).accel_g, 2);
}

TEST(GyroModel, keeps_range_accepts_and_ignores) {
  struct Row {
    const char *setting;
    int accel_g, gyro_dps;
  };
  for (const Row &row : {Row{"keeps_range = 1\n", 2, 250}, Row{"keeps_range = accel\n", 2, 500},
                         Row{"keeps_range = gyro\n", 4, 250}, Row{"keeps_range = 0\n", 4, 500}}) {
    ModelHarness board((std::string(kNode) + row.setting).c_str());
    ASSERT_EQ(board.open(), 0);
    GyroConfig config = {
        .poll_ms = 0, .accel_g = 4, .gyro_dps = 500, .wake_on_motion = 0, .reserved = 0};
    EXPECT_EQ(board.request(HAT_GYRO_SET_RNG, config), 0);
    EXPECT_EQ(config_of(board).accel_g, row.accel_g) << row.setting;
    EXPECT_EQ(config_of(board).gyro_dps, row.gyro_dps) << row.setting;
  }
}

TEST(GyroModel, silent_sensor_never_becomes_readable) {
  ModelHarness board("model = gyro\nsilent = 1\n");
  ASSERT_EQ(board.open(), 0);
  EXPECT_EQ(readable_at(board), kNever);
}

TEST(GyroModel, wake_on_motion_is_kept_in_the_node) {
  ModelHarness board(kNode);
  ASSERT_EQ(board.open(), 0);
  GyroConfig config = {
      .poll_ms = 0, .accel_g = 0, .gyro_dps = 0, .wake_on_motion = 9, .reserved = 0};
  EXPECT_EQ(board.request(HAT_GYRO_WOM_SET, config), 0);
  EXPECT_NE(board.node().find("wake_on_motion = 9\n"), std::string::npos);
}
