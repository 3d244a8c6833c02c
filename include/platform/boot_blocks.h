/* The two 256-byte blocks that describe a board: the boot parameters and the hardware information
 * of its CPLD. */

#ifndef PLATFORM_BOOT_BLOCKS_H
#define PLATFORM_BOOT_BLOCKS_H

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

#define RIG_BOOTPARAM_SIZE 256
#define RIG_HARDINFO_SIZE 256

/* Offset of the boot-parameter byte that the self-test may change: an unsigned counter that wraps.
 */
#define RIG_BOOTPARAM_COUNTER 250

/* Reads the boot-parameter block. `size` is that of `block` in bytes, which must be
 * RIG_BOOTPARAM_SIZE (else EINVAL). EIO for a block that is shorter; `block` is untouched on
 * failure.
 *
 * Reads the nvmem device of map key `bootparam`. */
RIG_API int rig_bootparam_get(void *block, int size);

/* Writes the whole boot-parameter block; `size` must be RIG_BOOTPARAM_SIZE. */
RIG_API int rig_bootparam_set(const void *block, int size);

/* Reads the hardware-information block; `size` must be RIG_HARDINFO_SIZE.
 *
 * Reads the nvmem device of map key `hardinfo`. */
RIG_API int rig_hardinfo_get(void *block, int size);

/* Prints `size` bytes as a hexadecimal dump on standard output, 16 to the line; nothing when `size`
 * is not positive. */
RIG_API void rig_bytes_print(const void *bytes, int size);

#ifdef __cplusplus
}
#endif

#endif
