// The attitude filter, against hand-computed steps and against a double-precision computation that
// is written out anew here.

#include "serial/attitude_filter.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

struct Reference {
  double q[4] = {1, 0, 0, 0};
  double integral[3] = {0, 0, 0};
  double yaw = 0;
  double pitch = 0, roll = 0;
};

enum class Update { kInPlace, kAtOnce };

void reference_step(Reference &s, const double (&measured)[3], const double (&rates)[3],
                    Update update = Update::kInPlace) {
  const double length = std::hypot(measured[0], measured[1], measured[2]);
  const double a[3] = {measured[0] / length, measured[1] / length, measured[2] / length};
  double *q = s.q;
  const double v[3] = {2 * (q[1] * q[3] - q[0] * q[2]), 2 * (q[0] * q[1] + q[2] * q[3]),
                       q[0] * q[0] - q[1] * q[1] - q[2] * q[2] + q[3] * q[3]};
  double w[3];
  for (int i = 0; i < 3; ++i) {
    const int j = (i + 1) % 3;
    const int k = (i + 2) % 3;
    const double error = a[j] * v[k] - a[k] * v[j];
    s.integral[i] += error * 0.002;
    w[i] = rates[i] + 100.0 * error + s.integral[i];
  }
  if (update == Update::kInPlace) {
    q[0] += 0.001 * (-q[1] * w[0] - q[2] * w[1] - q[3] * w[2]);
    q[1] += 0.001 * (q[0] * w[0] + q[2] * w[2] - q[3] * w[1]);
    q[2] += 0.001 * (q[0] * w[1] - q[1] * w[2] + q[3] * w[0]);
    q[3] += 0.001 * (q[0] * w[2] + q[1] * w[1] - q[2] * w[0]);
  } else {
    const double p[4] = {q[0], q[1], q[2], q[3]};
    q[0] += 0.001 * (-p[1] * w[0] - p[2] * w[1] - p[3] * w[2]);
    q[1] += 0.001 * (p[0] * w[0] + p[2] * w[2] - p[3] * w[1]);
    q[2] += 0.001 * (p[0] * w[1] - p[1] * w[2] + p[3] * w[0]);
    q[3] += 0.001 * (p[0] * w[2] + p[1] * w[1] - p[2] * w[0]);
  }
  const double norm = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
  for (int i = 0; i < 4; ++i)
    q[i] /= norm;
  s.pitch = std::asin(-2 * q[1] * q[3] + 2 * q[0] * q[2]) * 57.3;
  s.roll =
      std::atan2(2 * q[2] * q[3] + 2 * q[0] * q[1], -2 * q[1] * q[1] - 2 * q[2] * q[2] + 1) * 57.3;
  s.yaw += (w[2] + 1.633) / 100.0;
}

// A board that is shaken: sample n of a motion in all axes.
void shaken(int n, double (&accel)[3], double (&rates)[3]) {
  accel[0] = 0.4 * std::sin(0.05 * n);
  accel[1] = 0.3 * std::cos(0.07 * n);
  accel[2] = 0.9 + 0.1 * std::sin(0.11 * n);
  rates[0] = 180.0 * std::sin(0.03 * n + 1.0);
  rates[1] = 220.0 * std::cos(0.04 * n);
  rates[2] = 150.0 * std::sin(0.02 * n + 0.5);
}

GyroReading reading_of(const double (&accel)[3], const double (&rates)[3]) {
  return {
      {static_cast<float>(accel[0]), static_cast<float>(accel[1]), static_cast<float>(accel[2])},
      {static_cast<float>(rates[0]), static_cast<float>(rates[1]), static_cast<float>(rates[2])}};
}

TEST(AttitudeFilter, level_board_at_rest_only_drifts_in_yaw) {
  AttitudeState state;
  for (int n = 1; n <= 100; ++n) {
    const Attitude attitude = attitude_step(state, {{0.0f, 0.0f, 1.0f}, {0.0f, 0.0f, 0.0f}});
    EXPECT_FLOAT_EQ(attitude.pitch, 0.0f);
    EXPECT_FLOAT_EQ(attitude.roll, 0.0f);
    EXPECT_NEAR(attitude.yaw, 0.01633 * n, 1e-5 * n);
  }
}

// By hand, with the rates taken as they are: q1 = 0.1, q2 = 0.2 - 0.1 x 0.3, q3 = 0.3 + 0.1 x 0.2 -
// 0.17 x 0.1, each from those before it; updated all at once they would be 0.1, 0.2 and 0.3.
TEST(AttitudeFilter, each_component_uses_those_updated_before_it) {
  AttitudeState state;
  const Attitude attitude = attitude_step(state, {{0.0f, 0.0f, 9.81f}, {100.0f, 200.0f, 300.0f}});
  const double norm = std::sqrt(1.0 + 0.1 * 0.1 + 0.17 * 0.17 + 0.303 * 0.303);
  EXPECT_NEAR(state.q0, 1.0 / norm, 1e-6);
  EXPECT_NEAR(state.q1, 0.1 / norm, 1e-6);
  EXPECT_NEAR(state.q2, 0.17 / norm, 1e-6);
  EXPECT_NEAR(state.q3, 0.303 / norm, 1e-6);
  EXPECT_NEAR(attitude.yaw, 3.01633, 1e-5);
}

// From q = (0.5, 0.5, 0.5, 0.5) the first component changes as well, and the others must use its
// new value.
TEST(AttitudeFilter, later_components_use_the_new_first_one) {
  AttitudeState state = {.q0 = 0.5f, .q1 = 0.5f, .q2 = 0.5f, .q3 = 0.5f};
  // Estimated gravity is (0, 1, 0); measured the same, there is no error and the rates stay.
  attitude_step(state, {{0.0f, 2.0f, 0.0f}, {100.0f, 200.0f, 300.0f}});
  const double q0 = 0.5 + (-0.5 * 100 - 0.5 * 200 - 0.5 * 300) * 0.001;  // 0.2
  const double q1 = 0.5 + (q0 * 100 + 0.5 * 300 - 0.5 * 200) * 0.001;
  const double q2 = 0.5 + (q0 * 200 - q1 * 300 + 0.5 * 100) * 0.001;
  const double q3 = 0.5 + (q0 * 300 + q1 * 200 - q2 * 100) * 0.001;
  const double norm = std::sqrt(q0 * q0 + q1 * q1 + q2 * q2 + q3 * q3);
  EXPECT_NEAR(state.q0, q0 / norm, 1e-6);
  EXPECT_NEAR(state.q1, q1 / norm, 1e-6);
  EXPECT_NEAR(state.q2, q2 / norm, 1e-6);
  EXPECT_NEAR(state.q3, q3 / norm, 1e-6);
}

TEST(AttitudeFilter, error_acts_at_once_and_through_its_integral) {
  AttitudeState state;
  // Measured along y: error x is 1, so the rate is 100 + 0.002, and q1 a thousandth of it.
  attitude_step(state, {{0.0f, 3.0f, 0.0f}, {0.0f, 0.0f, 0.0f}});
  EXPECT_FLOAT_EQ(state.integral.x, 0.002f);
  EXPECT_FLOAT_EQ(state.integral.y, 0.0f);
  EXPECT_FLOAT_EQ(state.integral.z, 0.0f);
  const double q1 = 0.100002;
  EXPECT_NEAR(state.q1, q1 / std::sqrt(1 + q1 * q1), 1e-7);
}

TEST(AttitudeFilter, follows_a_double_precision_computation) {
  AttitudeState state;
  Reference reference;
  for (int n = 0; n < 500; ++n) {
    double accel[3];
    double rates[3];
    shaken(n, accel, rates);
    reference_step(reference, accel, rates);
    const Attitude attitude = attitude_step(state, reading_of(accel, rates));
    ASSERT_NEAR(attitude.pitch, reference.pitch, 0.01) << "sample " << n;
    ASSERT_NEAR(attitude.roll, reference.roll, 0.01) << "sample " << n;
    ASSERT_NEAR(attitude.yaw, reference.yaw, 0.02) << "sample " << n;
    ASSERT_NEAR(state.integral.x, reference.integral[0], 1e-4) << "sample " << n;
    ASSERT_NEAR(state.integral.y, reference.integral[1], 1e-4) << "sample " << n;
    ASSERT_NEAR(state.integral.z, reference.integral[2], 1e-4) << "sample " << n;
  }
}

// Keeps the comparison above honest: an update of all components at once lies far outside its
// limits.
TEST(AttitudeFilter, updating_all_components_at_once_would_be_seen) {
  Reference in_place;
  Reference at_once;
  double widest = 0;
  for (int n = 0; n < 500; ++n) {
    double accel[3];
    double rates[3];
    shaken(n, accel, rates);
    reference_step(in_place, accel, rates);
    reference_step(at_once, accel, rates, Update::kAtOnce);
    widest = std::fmax(widest, std::fabs(in_place.pitch - at_once.pitch));
  }
  EXPECT_GT(widest, 1.0);
}

TEST(AttitudeFilter, settles_on_the_tilt_of_a_resting_board) {
  AttitudeState state;
  Attitude attitude = {};
  // Tilted by 30 degrees about x; 57.3 degrees to the radian.
  for (int n = 0; n < 400; ++n)
    attitude = attitude_step(state, {{0.0f, 0.5f, 0.8660254f}, {0.0f, 0.0f, 0.0f}});
  EXPECT_NEAR(attitude.roll, 30.0, 0.05);
  EXPECT_NEAR(attitude.pitch, 0.0, 0.01);
}

TEST(AttitudeFilter, sample_without_acceleration_gives_no_number) {
  AttitudeState state;
  const Attitude attitude = attitude_step(state, {{0.0f, 0.0f, 0.0f}, {0.0f, 0.0f, 0.0f}});
  EXPECT_TRUE(std::isnan(attitude.pitch));
  EXPECT_TRUE(std::isnan(attitude.roll));
  EXPECT_TRUE(std::isnan(attitude.yaw));
}

TEST(AttitudeSums, pass_within_a_degree_of_90_in_either_direction) {
  const struct {
    float roll, pitch;
    bool passes;
  } rows[] = {
      {90.0f, 90.0f, true},   {-90.0f, 90.0f, true}, {90.0f, -90.0f, true}, {89.0f, 91.0f, true},
      {-91.0f, -89.0f, true}, {88.9f, 90.0f, false}, {91.1f, 90.0f, false}, {90.0f, 88.9f, false},
      {90.0f, -91.1f, false}, {0.0f, 0.0f, false},   {0.0f, 90.0f, false},  {NAN, 90.0f, false},
      {90.0f, NAN, false},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(attitude_sums_pass({.pitch = row.pitch, .roll = row.roll, .yaw = 12345.0f}),
              row.passes)
        << row.roll << ", " << row.pitch;
  }
}

}  // namespace
