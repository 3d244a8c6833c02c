/* The platform's banner. */

#ifndef PLATFORM_LOGO_H
#define PLATFORM_LOGO_H

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Prints the library's banner on standard output: a small drawing of four lines.
 * `indent` is the number of blanks in front of each (0 to 40, other values count as 0); the last
 * line is ended when `end_line` is not 0. Returns 0.
 *
 * Needs nothing of the kernel. */
RIG_API int rig_print_logo(int indent, int end_line);

#ifdef __cplusplus
}
#endif

#endif
