// Data and attitude lines of the g-sensor tool.

#include "serial/gyro_report.h"

namespace {

// The 16-bit value as its sign-extended 32-bit pattern: 0xFFFF8000 for -32768.
unsigned int pattern(std::int16_t raw) {
  return static_cast<unsigned int>(static_cast<std::int32_t>(raw));
}

}  // namespace

void print_gyro_data(FILE *stream, const GyroChip &chip, const GyroSample &sample,
                     const GyroReading &reading) {
  const std::int16_t(&accel)[3] = sample.accel;
  const std::int16_t(&gyro)[3] = sample.gyro;

  fputc(chip.line_start, stream);
  // clang-format off
  fprintf(stream,
          "[time=%8ld.%03.0f]"
          "[accel-x:0x%08X => %+02.03fg][accel-y:0x%08X => %+02.03fg][accel-z:0x%08X => %+02.03fg]",
          static_cast<long>(sample.seconds), sample.microseconds / 1000.0,
          pattern(accel[0]), static_cast<double>(reading.accel.x),
          pattern(accel[1]), static_cast<double>(reading.accel.y),
          pattern(accel[2]), static_cast<double>(reading.accel.z));
  if (chip.six_axes)
    fprintf(stream,
            "[gyro-x:0x%08X => %+04.03fdps][gyro-y:0x%08X => %+04.03fdps][gyro-z:0x%08X => %+04.03fdps]",
            pattern(gyro[0]), static_cast<double>(reading.rate.x),
            pattern(gyro[1]), static_cast<double>(reading.rate.y),
            pattern(gyro[2]), static_cast<double>(reading.rate.z));
  // clang-format on
  fflush(stream);
}

void print_attitude(FILE *stream, const Attitude &attitude) {
  fprintf(stream, "[Pitch:%+03.03f][Roll:%+03.03f][Yaw:%+03.03f]\n",
          static_cast<double>(attitude.pitch), static_cast<double>(attitude.roll),
          static_cast<double>(attitude.yaw));
  fflush(stream);
}
