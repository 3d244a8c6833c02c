// Wraps pthread_rwlock_timedrdlock pthread_rwlock_clockrdlock pthread_rwlock_timedwrlock
// pthread_rwlock_clockwrlock.
//
// At a fixed speed the wait is libc's until the same moment on the PC's clock. In a jumping run it
// is the engine's.

#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/wrap.h"
#include "vboard/interposer/wrap/deadlines.h"

#include <errno.h>
#include <pthread.h>
#include <time.h>

using namespace vboard;

namespace {

using ClockLock = int (*)(pthread_rwlock_t *, clockid_t, const timespec *);

pthread_rwlock_t *lock_of(const void *key) {
  return static_cast<pthread_rwlock_t *>(const_cast<void *>(key));
}

bool took_for_reading(const void *key) {
  return pthread_rwlock_tryrdlock(lock_of(key)) == 0;
}

bool took_for_writing(const void *key) {
  return pthread_rwlock_trywrlock(lock_of(key)) == 0;
}

int wait_for_lock(pthread_rwlock_t *lock, BoardTime deadline, bool (*took)(const void *key)) {
  for (;;) {
    Wait wait;
    wait.deadline = deadline;
    wait.key = lock;
    wait.done = took;
    const WaitEnd end = wait_on_board(wait);
    if (end == WaitEnd::kWoken)
      return 0;
    if (end == WaitEnd::kTimeout)
      return ETIMEDOUT;
  }
}

int lock_until(pthread_rwlock_t *lock, clockid_t clock, const timespec &limit, ClockLock libc_lock,
               bool (*took)(const void *key)) {
  if (is_bad_fraction(limit) || (clock != CLOCK_REALTIME && clock != CLOCK_MONOTONIC))
    return EINVAL;
  const BoardTime deadline = board_moment(clock, limit);
  if (!jumping()) {
    const timespec pc = pc_moment(deadline);
    return libc_lock(lock, CLOCK_MONOTONIC, &pc);
  }
  // libc's own answer for a moment that has passed: the lock, or why there is no use in waiting.
  const timespec passed = {};
  const int error = libc_lock(lock, CLOCK_MONOTONIC, &passed);
  return error == ETIMEDOUT ? wait_for_lock(lock, deadline, took) : error;
}

}  // namespace

WRAP(int, pthread_rwlock_clockrdlock, pthread_rwlock_t *lock, clockid_t clock,
     const timespec *limit) {
  const ClockLock libc_lock = REAL(pthread_rwlock_clockrdlock);
  return on_board() ? lock_until(lock, clock, *limit, libc_lock, took_for_reading)
                    : libc_lock(lock, clock, limit);
}

WRAP(int, pthread_rwlock_clockwrlock, pthread_rwlock_t *lock, clockid_t clock,
     const timespec *limit) {
  const ClockLock libc_lock = REAL(pthread_rwlock_clockwrlock);
  return on_board() ? lock_until(lock, clock, *limit, libc_lock, took_for_writing)
                    : libc_lock(lock, clock, limit);
}

WRAP(int, pthread_rwlock_timedrdlock, pthread_rwlock_t *lock, const timespec *limit) {
  return on_board() ? vboard_pthread_rwlock_clockrdlock(lock, CLOCK_REALTIME, limit)
                    : REAL(pthread_rwlock_timedrdlock)(lock, limit);
}

WRAP(int, pthread_rwlock_timedwrlock, pthread_rwlock_t *lock, const timespec *limit) {
  return on_board() ? vboard_pthread_rwlock_clockwrlock(lock, CLOCK_REALTIME, limit)
                    : REAL(pthread_rwlock_timedwrlock)(lock, limit);
}
