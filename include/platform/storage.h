/* The board's storage devices and their power. */

#ifndef PLATFORM_STORAGE_H
#define PLATFORM_STORAGE_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* StorDev.state */
enum {
  STOR_OFFLINE = 0,
  STOR_ONLINE = 1,
  STOR_ERROR = 2,
  STOR_DAMAGE = 3,
  STOR_DET = 4,
  STOR_FS_PANIC = 5,
  STOR_READONLY = 6,
};

/* StorDev.power_state */
enum { STOR_POWEROFF = 0, STOR_POWERUP = 1 };

#define STOR_DEVICES_MAX 16

typedef struct StorDev {
  char name[32];        /*  0: NUL-terminated, such as "mmcblk0" or "msa" */
  uint32_t state;       /* 32: STOR_OFFLINE ... */
  uint32_t power_state; /* 36: STOR_POWEROFF or STOR_POWERUP */
} StorDev;

static_assert(sizeof(StorDev) == 40, "record size");
static_assert(offsetof(StorDev, state) == 32, "record offset");
static_assert(offsetof(StorDev, power_state) == 36, "record offset");

typedef struct StorDevList {
  StorDev devices[STOR_DEVICES_MAX]; /*   0 */
  int32_t count;                     /* 640: how many of them are filled */
} StorDevList;

static_assert(sizeof(StorDevList) == 644, "record size");
static_assert(offsetof(StorDevList, count) == 640, "record offset");

/* Fills the list, which the caller has zeroed. -1 with errno for failure.
 *
 * The disks of /sys/block without loop, ram and the like, and the devices that the map gives a
 * power switch (`storage.N`) while they are switched off, in the order of their names. */
RIG_API int rig_stor_devlist(StorDevList *list);

/* State of the device whose name is set, STOR_OFFLINE for one that is not there; -1 with errno.
 *
 * The device's attributes (state, ro) below /sys/block. */
RIG_API int rig_stor_dev_state(StorDev *device);

/* STOR_POWEROFF or STOR_POWERUP of the device whose name is set; -1 with errno. A device without a
 * switch is up while it is there. */
RIG_API int rig_stor_dev_power_state(StorDev *device);

/* Switches the device whose name is set: `power` is STOR_POWEROFF or STOR_POWERUP. -1 with errno.
 *
 * Off: the kernel lets the device go (its delete attribute), then its switch is opened. On: the
 * switch is closed and the host scans again. ENODEV for a device without a switch. */
RIG_API int rig_stor_dev_power_ctrl(StorDev *device, uint32_t power);

#ifdef __cplusplus
}
#endif

#endif
