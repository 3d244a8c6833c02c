/* MD5 digests of files and digest lists.
 *
 * A list has a line "DIGEST  NAME" for each file, 32 lower-case hexadecimal digits and two blanks,
 * as `md5sum -c` reads it. Digests come from libmd; nothing of the kernel is needed but files. */

#ifndef PLATFORM_MD5_H
#define PLATFORM_MD5_H

#include "platform/api.h"
#include "platform/verbose.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Digests `file`. Prints its line on standard output when `list` is null, else puts it into the
 * list file, which is made when it is missing: in the place of the line of the same name, at the
 * end when there is none. 0, or -1 with errno, after a line on standard error. */
RIG_API int rig_md5sum_files(const char *list, const char *file);

/* Checks every file of `list` and prints "NAME: OK" or "NAME: FAILED" for each on standard output,
 * in the list's order. 0 when all agree, 1 when a file differs or cannot be read, -1 with errno
 * when the list cannot be read or has no valid line. */
RIG_API int rig_md5sum_check(const char *list);

#ifdef __cplusplus
}
#endif

#endif
