// The lines that the g-sensor tool prints for each sample. Each is flushed, so that the log is
// complete whenever the tool is stopped.

#ifndef BENCHRIG_SERIAL_GYRO_REPORT_H
#define BENCHRIG_SERIAL_GYRO_REPORT_H

#include <cstdio>

#include "serial/attitude_filter.h"
#include "serial/gyro_conversion.h"

void print_gyro_data(std::FILE *stream, const GyroChip &chip, const GyroSample &sample,
                     const GyroReading &reading);
void print_attitude(std::FILE *stream, const Attitude &attitude);

#endif
