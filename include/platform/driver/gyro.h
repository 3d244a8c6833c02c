/* The motion sensor's driver, /dev/gyro.
 *
 * The request numbers encode a size of four bytes whatever the record's size is: use them as they
 * stand, never _IOR() and the like. */

#ifndef PLATFORM_DRIVER_GYRO_H
#define PLATFORM_DRIVER_GYRO_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#define GYRO_DEVICE "/dev/gyro"

#define HAT_GYRO_INIT 0x80045901u        /* fills a GyroIdentity */
#define HAT_GYRO_TMR_SET 0x40045902u     /* takes GyroConfig.poll_ms */
#define HAT_GYRO_READ_CONFIG 0x80045905u /* fills GyroConfig.accel_g and .gyro_dps */
#define HAT_GYRO_SET_RNG 0x40045906u     /* takes GyroConfig.accel_g and .gyro_dps */
#define HAT_GYRO_WOM_SET 0x40045907u     /* takes GyroConfig.wake_on_motion */

typedef struct GyroIdentity {
  char name[32]; /*  0: NUL-terminated chip name, such as "GYRO_LSM6DS3TR" */
  uint32_t type; /* 32: the chip's type number */
} GyroIdentity;

static_assert(sizeof(GyroIdentity) == 36, "record size");
static_assert(offsetof(GyroIdentity, type) == 32, "record offset");

/* Zeroed before each request. */
typedef struct GyroConfig {
  int32_t poll_ms;        /*  0: milliseconds from sample to sample */
  int32_t accel_g;        /*  4: accelerometer full scale: 2, 4, 8 or 16 g */
  int32_t gyro_dps;       /*  8: gyroscope full scale: 250, 500, 1000 or 2000 degrees per second */
  int32_t wake_on_motion; /* 12 */
  int32_t reserved;       /* 16 */
} GyroConfig;

static_assert(sizeof(GyroConfig) == 20, "record size");
static_assert(offsetof(GyroConfig, accel_g) == 4, "record offset");
static_assert(offsetof(GyroConfig, gyro_dps) == 8, "record offset");
static_assert(offsetof(GyroConfig, wake_on_motion) == 12, "record offset");

/* What one read() delivers. */
typedef struct GyroSample {
  int16_t accel[3];     /*  0: x, y, z, raw */
  int16_t gyro[3];      /*  6: x, y, z, raw */
  uint8_t unused[8];    /* 12 */
  int32_t seconds;      /* 20: time of the sample */
  int32_t microseconds; /* 24 */
} GyroSample;

static_assert(sizeof(GyroSample) == 28, "record size");
static_assert(offsetof(GyroSample, gyro) == 6, "record offset");
static_assert(offsetof(GyroSample, seconds) == 20, "record offset");
static_assert(offsetof(GyroSample, microseconds) == 24, "record offset");

#endif
