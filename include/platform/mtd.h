/* Flash partitions (MTD).
 *
 * Every operation works on the kernel's MTD character device /dev/mtdN of partition number N; bad
 * blocks are the ones that the kernel reports (MEMGETBADBLOCK). Sizes are in bytes. */

#ifndef PLATFORM_MTD_H
#define PLATFORM_MTD_H

#include <stdint.h>

#include "platform/api.h"
#include "platform/verbose.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The partition number of a device path such as "/dev/mtd0": 0 or more, -1 with errno when there is
 * no such partition (EINVAL for a path that names none). */
RIG_API int rig_mtd_getnum(const char *path);

/* Total size, erase-block size and write (page) size; -1 with errno. EOVERFLOW for 2 GiB and more.
 *
 * MEMGETINFO. */
RIG_API int rig_mtd_size(int number);
RIG_API int rig_mtd_erasesize(int number);
RIG_API int rig_mtd_writesize(int number);

/* The size less its bad blocks; -1 with errno. */
RIG_API int rig_mtd_avail_space_size(int number);

/* The most data that rig_mtd_write_skip_bad() takes at offset 0; -1 with errno. */
RIG_API int rig_mtd_valid_data_len(int number);

/* Compares what two partitions hold, each read with its own bad blocks skipped, over the shorter
 * one's good blocks. 0 when equal, 1 when not, -1 with errno. */
RIG_API int rig_mtd_cmp_skip_bad(int number_a, int number_b);

/* Erases and writes as many good blocks as `size` bytes need. `offset` counts in the partition's
 * good blocks and is a multiple of the erase-block size (else EINVAL); the rest of the last page is
 * written as 0xFF. 0, or -1 with errno: ENOSPC when the data does not fit, before anything is
 * erased. A block that fails while it is written is marked bad and the data goes to the next one.
 */
RIG_API int rig_mtd_write_skip_bad(int number, uint32_t offset, const void *data, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif
