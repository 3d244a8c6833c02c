/* Versions of what the board booted. */

#ifndef PLATFORM_VERSIONS_H
#define PLATFORM_VERSIONS_H

#include <stdint.h>

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Room that the text operations below expect, terminator included: they are not told the size. */
#define RIG_VERSION_TEXT_SIZE 256

/* The running kernel's version: major in bits 16 and up, minor in bits 8 to 15, patch in bits 0 to
 * 7 (255 for a patch level above it). 0 with errno for failure.
 *
 * From /proc/version. */
RIG_API uint32_t rig_kernel_version(void);

/* The day on which the running kernel was built: year - 2000 in bits 16 and up, month (1 to 12) in
 * bits 8 to 15, day in bits 0 to 7. 0 with errno for failure (ENODATA when the kernel does not
 * tell).
 *
 * From /proc/version. */
RIG_API uint32_t rig_kernel_date(void);

/* Each of these fills `text` with one line without a line end, at most RIG_VERSION_TEXT_SIZE - 1
 * characters and a NUL, and returns 0; -1 with errno (ENOENT when the board does not tell) for
 * failure, `text` being untouched then.
 *
 * First-stage boot loader: map key `version.korboot`, a text of the device tree's /chosen. */
RIG_API int rig_get_korbootversion(char *text);
/* U-Boot: map key `version.uboot`, u-boot,version of the device tree's /chosen. */
RIG_API int rig_get_ubootversion(char *text);
/* Board-support package: map key `version.korbsp`, PRETTY_NAME of os-release. */
RIG_API int rig_get_korbspversion(char *text);
/* Kernel: /proc/version. */
RIG_API int rig_get_kernelversion(char *text);

#ifdef __cplusplus
}
#endif

#endif
