/* How much librigcore tells while it works. */

#ifndef PLATFORM_VERBOSE_H
#define PLATFORM_VERBOSE_H

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* 0, as it starts: failures only. 1: the upgrade engine, the MTD and the MD5 operations also tell
 * on standard error what they do. */
extern RIG_API int rig_verbose;

#ifdef __cplusplus
}
#endif

#endif
