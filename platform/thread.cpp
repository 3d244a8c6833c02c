// Threads and processors.

#include "platform/thread.h"

#include <errno.h>
#include <sched.h>

#include <cstddef>

int rig_thread_set_cpu(pthread_t thread, int cpu) {
  if (cpu < 0 || cpu >= CPU_SETSIZE) {
    errno = EINVAL;
    return -1;
  }
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<std::size_t>(cpu), &set);
  const int error = pthread_setaffinity_np(thread, sizeof set, &set);
  if (error != 0) {
    errno = error;
    return -1;
  }
  return 0;
}
