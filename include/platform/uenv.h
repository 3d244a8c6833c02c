/* The U-Boot environment.
 *
 * On a mainline kernel it is read and written through libubootenv, with /etc/fw_env.config saying
 * where it lies. Every operation fails with ENODEV when that file or the device it names is
 * missing, ELIBACC when libubootenv is not installed, EIO for an environment that cannot be read or
 * whose checksum is wrong. */

#ifndef PLATFORM_UENV_H
#define PLATFORM_UENV_H

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Sizes in which the tools keep names and values, terminators included. */
#define RIG_UENV_KEY_SIZE 64
#define RIG_UENV_VALUE_SIZE 256

/* The number of variables, 0 for an empty environment, -1 with errno for one that cannot be read.
 *
 * Takes the listing that rig_uenv_key() answers from: one reading of the environment. */
RIG_API int rig_uenv_totalkey(void);

/* Stores the name of variable `index` (0 to rig_uenv_totalkey() - 1) in `key`, cut to `size` - 1
 * characters and terminated. EINVAL for an index out of range, a null `key` or no room. The order
 * stays while nothing is set. */
RIG_API int rig_uenv_key(int index, char *key, int size);

/* Stores the value of `key` in `value`, cut to `size` - 1 characters and terminated. ENOENT when
 * there is no such variable, EINVAL for a null pointer or no room; `value` is untouched on failure.
 *
 * Reads the environment anew, except for the variable that rig_uenv_key() has just named: its value
 * is the listing's, also when its name had to be cut. */
RIG_API int rig_uenv_get(const char *key, char *value, int size);

/* Sets `key` to `value`, which may be empty, and stores the environment. EPERM when the variable
 * may not be changed, EINVAL for an empty name or one with '=' in it, ENOSPC when the environment
 * is full. */
RIG_API int rig_uenv_set(const char *key, const char *value);

/* Copies the value of `key` of the boot environment's `group` into `buffer`: at most `size` bytes,
 * with its NUL only when that fits, so that a one-character value fits one byte. ENOENT when there
 * is no such key; `buffer` is untouched on failure.
 *
 * The groups of a mainline board share one name space, the U-Boot environment: `group` is not
 * looked at. */
RIG_API int rigabi_get_value(const char *group, const char *key, void *buffer, int size);

#ifdef __cplusplus
}
#endif

#endif
