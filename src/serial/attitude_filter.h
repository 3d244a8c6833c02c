// Pitch, roll and yaw from acceleration and rotation rate: a complementary filter on a quaternion,
// whose gravity estimate is pulled towards the measured acceleration by a proportional and an
// integral term.

#ifndef BENCHRIG_SERIAL_ATTITUDE_FILTER_H
#define BENCHRIG_SERIAL_ATTITUDE_FILTER_H

#include "serial/gyro_conversion.h"

struct AttitudeState {
  float q0 = 1.0f, q1 = 0.0f, q2 = 0.0f, q3 = 0.0f;
  Axes integral = {0.0f, 0.0f, 0.0f};  // accumulated error
  float yaw = 0.0f;  // the yaw is a sum over the samples; the other angles follow from q
};

struct Attitude {
  float pitch, roll, yaw;  // degrees
};

// Takes one sample and returns the attitude after it. A sample without any acceleration has no
// direction: it makes the state, and every attitude after it, not-a-number.
Attitude attitude_step(AttitudeState &state, const GyroReading &reading);

// The self-test's rule, on the sums of the angles over its samples: roll and pitch must each have
// added up to 90 degrees, to within 1, in either direction.
bool attitude_sums_pass(const Attitude &sums);

#endif
