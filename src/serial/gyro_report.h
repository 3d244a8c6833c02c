// The lines that the g-sensor tool prints for each sample. Each is flushed, so that the log is
// complete whenever the tool is stopped.

#ifndef BENCHRIG_SERIAL_GYRO_REPORT_H
#define BENCHRIG_SERIAL_GYRO_REPORT_H

#include "serial/attitude_filter.h"
#include "serial/gyro_conversion.h"

#include <stdio.h>

void print_gyro_data(FILE *stream, const GyroChip &chip, const GyroSample &sample,
                     const GyroReading &reading);
void print_attitude(FILE *stream, const Attitude &attitude);

#endif
