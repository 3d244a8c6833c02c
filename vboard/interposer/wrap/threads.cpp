// Wraps pthread_create pthread_exit pthread_join pthread_timedjoin_np pthread_clockjoin_np
// pthread_cond_wait pthread_cond_timedwait pthread_cond_clockwait pthread_cond_signal
// pthread_cond_broadcast sem_wait sem_timedwait sem_clockwait sem_post pthread_mutex_lock
// pthread_mutex_unlock pthread_mutex_timedlock pthread_mutex_clocklock.
//
// At a fixed speed waiting between threads is the kernel's, with absolute times turned into the
// PC's. In a jumping run the engine must know who waits: these waits are its own.

#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/jumping.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/wrap.h"
#include "vboard/interposer/wrap/deadlines.h"

#include <errno.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdlib.h>
#include <time.h>

#include <atomic>

using namespace vboard;

DECLARE_WRAPPED(int, pthread_mutex_lock, pthread_mutex_t *);
DECLARE_WRAPPED(int, pthread_mutex_trylock, pthread_mutex_t *);

namespace {

struct Start {
  void *(*function)(void *);
  void *argument;
  std::int32_t seat;
};

pthread_key_t end_key;
pthread_once_t end_key_made = PTHREAD_ONCE_INIT;

void make_end_key() {
  pthread_key_create(&end_key, [](void *) { end_thread(); });
}

// The first of a thread in a jumping run.
void *begin(void *context) {
  const Start start = *static_cast<Start *>(context);
  free(context);
  pthread_setspecific(end_key, &end_key);
  begin_thread(start.seat);
  return start.function(start.argument);
}

}  // namespace

WRAP(int, pthread_create, pthread_t *thread, const pthread_attr_t *attributes,
     void *(*function)(void *), void *argument) {
  if (!on_board() || !jumping())
    return REAL(pthread_create)(thread, attributes, function, argument);
  pthread_once(&end_key_made, make_end_key);
  Start *start = static_cast<Start *>(malloc(sizeof(Start)));
  if (start == nullptr)
    return EAGAIN;
  start->function = function;
  start->argument = argument;
  // It has its place in the order before it can run.
  start->seat = expect_thread();
  const std::int32_t seat = start->seat;
  const int result = REAL(pthread_create)(thread, attributes, begin, start);
  if (result == 0) {
    know_thread(seat, *thread);
  } else {
    forget_thread(seat);
    free(start);
  }
  return result;
}

WRAP(void, pthread_exit, void *value) {
  // The main thread has no end of its own to be noticed by.
  if (on_board() && jumping()) {
    pthread_once(&end_key_made, make_end_key);
    pthread_setspecific(end_key, &end_key);
  }
  // The address sanitizer forgets the frames of this stack for a call that is known not to return.
  typedef void (*Exit)(void *) __attribute__((noreturn));
  reinterpret_cast<Exit>(REAL(pthread_exit))(value);
}

namespace {

// Waits until a thread is about to end; false when the deadline came first.
bool await_end(pthread_t thread, BoardTime deadline) {
  for (;;) {
    Wait wait;
    wait.deadline = deadline;
    wait.key = reinterpret_cast<const void *>(thread);
    wait.done = thread_has_ended;
    wait.what = "the end of a thread";
    const WaitEnd end = wait_on_board(wait);
    if (end == WaitEnd::kWoken)
      return true;
    if (end == WaitEnd::kTimeout)
      return false;
  }
}

}  // namespace

WRAP(int, pthread_join, pthread_t thread, void **value) {
  if (on_board() && jumping())
    await_end(thread, kNever);
  return REAL(pthread_join)(thread, value);
}

WRAP(int, pthread_clockjoin_np, pthread_t thread, void **value, clockid_t clock,
     const timespec *limit) {
  if (!on_board() || limit == nullptr)
    return REAL(pthread_clockjoin_np)(thread, value, clock, limit);
  const BoardTime deadline = board_moment(clock, *limit);
  if (jumping() && !await_end(thread, deadline))
    return ETIMEDOUT;
  timespec pc = pc_moment(deadline);
  if (jumping())
    pc.tv_sec += 60;  // it is ending
  return REAL(pthread_clockjoin_np)(thread, value, CLOCK_MONOTONIC, &pc);
}

WRAP(int, pthread_timedjoin_np, pthread_t thread, void **value, const timespec *limit) {
  if (!on_board())
    return REAL(pthread_timedjoin_np)(thread, value, limit);
  return vboard_pthread_clockjoin_np(thread, value, CLOCK_REALTIME, limit);
}

namespace {

// The wait of a jumping run. A signal handler ends it early, as a condition may.
int wait_for_condition(pthread_cond_t *condition, pthread_mutex_t *mutex, BoardTime deadline) {
  Wait wait;
  wait.deadline = deadline;
  wait.key = condition;
  wait.release = mutex;
  wait.what = "a condition";
  const WaitEnd end = wait_on_board(wait);
  vboard_pthread_mutex_lock(mutex);
  pthread_testcancel();
  return end == WaitEnd::kTimeout ? ETIMEDOUT : 0;
}

}  // namespace

WRAP(int, pthread_cond_clockwait, pthread_cond_t *condition, pthread_mutex_t *mutex,
     clockid_t clock, const timespec *limit) {
  if (!on_board())
    return REAL(pthread_cond_clockwait)(condition, mutex, clock, limit);
  if (is_bad_fraction(*limit))
    return EINVAL;
  const BoardTime deadline = board_moment(clock, *limit);
  if (jumping())
    return wait_for_condition(condition, mutex, deadline);
  const timespec pc = pc_moment(deadline);
  return REAL(pthread_cond_clockwait)(condition, mutex, CLOCK_MONOTONIC, &pc);
}

WRAP(int, pthread_cond_timedwait, pthread_cond_t *condition, pthread_mutex_t *mutex,
     const timespec *limit) {
  if (!on_board())
    return REAL(pthread_cond_timedwait)(condition, mutex, limit);
  if (is_bad_fraction(*limit))
    return EINVAL;
  const BoardTime deadline = board_moment(clock_of(*condition), *limit);
  if (jumping())
    return wait_for_condition(condition, mutex, deadline);
  const timespec pc = pc_moment(deadline);
  return REAL(pthread_cond_clockwait)(condition, mutex, CLOCK_MONOTONIC, &pc);
}

WRAP(int, pthread_cond_wait, pthread_cond_t *condition, pthread_mutex_t *mutex) {
  if (!on_board() || !jumping())
    return REAL(pthread_cond_wait)(condition, mutex);
  return wait_for_condition(condition, mutex, kNever);
}

WRAP(int, pthread_cond_signal, pthread_cond_t *condition) {
  if (!on_board() || !jumping())
    return REAL(pthread_cond_signal)(condition);
  wake_waiters(condition, false);
  return 0;
}

WRAP(int, pthread_cond_broadcast, pthread_cond_t *condition) {
  if (!on_board() || !jumping())
    return REAL(pthread_cond_broadcast)(condition);
  wake_waiters(condition, true);
  return 0;
}

namespace {

bool took_semaphore(const void *key) {
  const int kept = errno;
  const bool took = sem_trywait(static_cast<sem_t *>(const_cast<void *>(key))) == 0;
  errno = kept;
  return took;
}

bool took_mutex(const void *key) {
  return REAL(pthread_mutex_trylock)(static_cast<pthread_mutex_t *>(const_cast<void *>(key))) == 0;
}

int wait_for_semaphore(sem_t *semaphore, BoardTime deadline) {
  Wait wait;
  wait.deadline = deadline;
  wait.key = semaphore;
  wait.done = took_semaphore;
  wait.what = "a semaphore";
  switch (wait_on_board(wait)) {
    case WaitEnd::kWoken:
      return 0;
    case WaitEnd::kTimeout:
      errno = ETIMEDOUT;
      return -1;
    default:
      errno = EINTR;
      return -1;
  }
}

}  // namespace

WRAP(int, sem_wait, sem_t *semaphore) {
  if (!on_board() || !jumping())
    return REAL(sem_wait)(semaphore);
  return took_semaphore(semaphore) ? 0 : wait_for_semaphore(semaphore, kNever);
}

WRAP(int, sem_clockwait, sem_t *semaphore, clockid_t clock, const timespec *limit) {
  if (!on_board())
    return REAL(sem_clockwait)(semaphore, clock, limit);
  if (took_semaphore(semaphore))
    return 0;
  if (is_bad_fraction(*limit))
    return report(-EINVAL);
  const BoardTime deadline = board_moment(clock, *limit);
  if (jumping())
    return wait_for_semaphore(semaphore, deadline);
  const timespec pc = pc_moment(deadline);
  return REAL(sem_clockwait)(semaphore, CLOCK_MONOTONIC, &pc);
}

WRAP(int, sem_timedwait, sem_t *semaphore, const timespec *limit) {
  if (!on_board())
    return REAL(sem_timedwait)(semaphore, limit);
  return vboard_sem_clockwait(semaphore, CLOCK_REALTIME, limit);
}

WRAP(int, sem_post, sem_t *semaphore) {
  const int result = REAL(sem_post)(semaphore);
  if (result == 0 && on_board() && jumping())
    wake_waiters(semaphore, false);
  return result;
}

namespace {

// How many threads of this process wait for a mutex: usually none, and unlocking wakes nobody.
std::atomic<int> mutex_waiters;

// 0, or ETIMEDOUT. A signal's handler does not end it.
int wait_for_mutex(pthread_mutex_t *mutex, BoardTime deadline) {
  ++mutex_waiters;
  WaitEnd end;
  do {
    Wait wait;
    wait.deadline = deadline;
    wait.key = mutex;
    wait.done = took_mutex;
    wait.what = "a mutex";
    end = wait_on_board(wait);
  } while (end != WaitEnd::kWoken && end != WaitEnd::kTimeout);
  --mutex_waiters;
  return end == WaitEnd::kWoken ? 0 : ETIMEDOUT;
}

}  // namespace

WRAP(int, pthread_mutex_lock, pthread_mutex_t *mutex) {
  if (!jumping())
    return REAL(pthread_mutex_lock)(mutex);
  // One that is free is no affair of the board's.
  const int result = REAL(pthread_mutex_trylock)(mutex);
  if (result != EBUSY || !on_board())
    return result != EBUSY ? result : REAL(pthread_mutex_lock)(mutex);
  // A mutex that checks for errors refuses its owner.
  if ((mutex->__data.__kind & 3) == PTHREAD_MUTEX_ERRORCHECK)
    return REAL(pthread_mutex_lock)(mutex);
  return wait_for_mutex(mutex, kNever);
}

WRAP(int, pthread_mutex_unlock, pthread_mutex_t *mutex) {
  const int result = REAL(pthread_mutex_unlock)(mutex);
  if (mutex_waiters.load(std::memory_order_relaxed) > 0)
    wake_waiters(mutex, false);
  return result;
}

WRAP(int, pthread_mutex_clocklock, pthread_mutex_t *mutex, clockid_t clock, const timespec *limit) {
  if (!on_board())
    return REAL(pthread_mutex_clocklock)(mutex, clock, limit);
  if (took_mutex(mutex))
    return 0;
  if (is_bad_fraction(*limit))
    return EINVAL;
  const BoardTime deadline = board_moment(clock, *limit);
  if (jumping())
    return wait_for_mutex(mutex, deadline);
  const timespec pc = pc_moment(deadline);
  return REAL(pthread_mutex_clocklock)(mutex, CLOCK_MONOTONIC, &pc);
}

WRAP(int, pthread_mutex_timedlock, pthread_mutex_t *mutex, const timespec *limit) {
  if (!on_board())
    return REAL(pthread_mutex_timedlock)(mutex, limit);
  return vboard_pthread_mutex_clocklock(mutex, CLOCK_REALTIME, limit);
}
