// Wraps thrd_create thrd_join thrd_exit cnd_wait cnd_timedwait cnd_signal cnd_broadcast mtx_lock
// mtx_timedlock mtx_unlock.
//
// libc's records for these are those of POSIX threads under other names, and its functions reach
// their POSIX twins past the wrappers. Here they go through them.

#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <pthread.h>
#include <stdlib.h>
#include <threads.h>
#include <time.h>

#include <cstdint>

using namespace vboard;

static_assert(sizeof(cnd_t) == sizeof(pthread_cond_t));
static_assert(sizeof(mtx_t) == sizeof(pthread_mutex_t));

DECLARE_WRAPPED(int, pthread_create, pthread_t *, const pthread_attr_t *, void *(*)(void *),
                void *);
DECLARE_WRAPPED(int, pthread_join, pthread_t, void **);
DECLARE_WRAPPED(void, pthread_exit, void *);
DECLARE_WRAPPED(int, pthread_cond_wait, pthread_cond_t *, pthread_mutex_t *);
DECLARE_WRAPPED(int, pthread_cond_timedwait, pthread_cond_t *, pthread_mutex_t *, const timespec *);
DECLARE_WRAPPED(int, pthread_cond_signal, pthread_cond_t *);
DECLARE_WRAPPED(int, pthread_cond_broadcast, pthread_cond_t *);
DECLARE_WRAPPED(int, pthread_mutex_lock, pthread_mutex_t *);
DECLARE_WRAPPED(int, pthread_mutex_timedlock, pthread_mutex_t *, const timespec *);
DECLARE_WRAPPED(int, pthread_mutex_unlock, pthread_mutex_t *);

namespace {

int answer_of(int error) {
  switch (error) {
    case 0:
      return thrd_success;
    case ENOMEM:
      return thrd_nomem;
    case ETIMEDOUT:
      return thrd_timedout;
    case EBUSY:
      return thrd_busy;
    default:
      return thrd_error;
  }
}

pthread_cond_t *posix(cnd_t *condition) {
  return reinterpret_cast<pthread_cond_t *>(condition);
}

pthread_mutex_t *posix(mtx_t *mutex) {
  return reinterpret_cast<pthread_mutex_t *>(mutex);
}

void *value_of(int result) {
  return reinterpret_cast<void *>(static_cast<std::intptr_t>(result));
}

struct Start {
  thrd_start_t function;
  void *argument;
};

void *begin(void *context) {
  const Start start = *static_cast<Start *>(context);
  free(context);
  return value_of(start.function(start.argument));
}

}  // namespace

WRAP(int, thrd_create, thrd_t *thread, thrd_start_t function, void *argument) {
  if (!on_board())
    return REAL(thrd_create)(thread, function, argument);
  Start *start = static_cast<Start *>(malloc(sizeof(Start)));
  if (start == nullptr)
    return thrd_nomem;
  *start = {function, argument};
  const int error = vboard_pthread_create(thread, nullptr, begin, start);
  if (error != 0)
    free(start);
  return answer_of(error);
}

WRAP(int, thrd_join, thrd_t thread, int *result) {
  if (!on_board())
    return REAL(thrd_join)(thread, result);
  void *value;
  const int error = vboard_pthread_join(thread, &value);
  if (error == 0 && result != nullptr)
    *result = static_cast<int>(reinterpret_cast<std::intptr_t>(value));
  return answer_of(error);
}

WRAP(void, thrd_exit, int result) {
  if (on_board())
    vboard_pthread_exit(value_of(result));
  REAL(thrd_exit)(result);
  __builtin_unreachable();
}

WRAP(int, cnd_wait, cnd_t *condition, mtx_t *mutex) {
  return on_board() ? answer_of(vboard_pthread_cond_wait(posix(condition), posix(mutex)))
                    : REAL(cnd_wait)(condition, mutex);
}

// The limit is a time of TIME_UTC, which the condition counts by.
WRAP(int, cnd_timedwait, cnd_t *condition, mtx_t *mutex, const timespec *limit) {
  return on_board()
             ? answer_of(vboard_pthread_cond_timedwait(posix(condition), posix(mutex), limit))
             : REAL(cnd_timedwait)(condition, mutex, limit);
}

WRAP(int, cnd_signal, cnd_t *condition) {
  return on_board() ? answer_of(vboard_pthread_cond_signal(posix(condition)))
                    : REAL(cnd_signal)(condition);
}

WRAP(int, cnd_broadcast, cnd_t *condition) {
  return on_board() ? answer_of(vboard_pthread_cond_broadcast(posix(condition)))
                    : REAL(cnd_broadcast)(condition);
}

WRAP(int, mtx_lock, mtx_t *mutex) {
  return on_board() ? answer_of(vboard_pthread_mutex_lock(posix(mutex))) : REAL(mtx_lock)(mutex);
}

WRAP(int, mtx_timedlock, mtx_t *mutex, const timespec *limit) {
  return on_board() ? answer_of(vboard_pthread_mutex_timedlock(posix(mutex), limit))
                    : REAL(mtx_timedlock)(mutex, limit);
}

WRAP(int, mtx_unlock, mtx_t *mutex) {
  return on_board() ? answer_of(vboard_pthread_mutex_unlock(posix(mutex)))
                    : REAL(mtx_unlock)(mutex);
}
