/* Threads and processors. */

#ifndef PLATFORM_THREAD_H
#define PLATFORM_THREAD_H

#include <pthread.h>

#include "platform/api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Binds a thread of this process to processor `cpu`, counted from 0. 0, or -1 with errno: EINVAL
 * when the board has no such processor, ESRCH when there is no such thread.
 *
 * pthread_setaffinity_np(). */
RIG_API int rig_thread_set_cpu(pthread_t thread, int cpu);

#ifdef __cplusplus
}
#endif

#endif
