// Waits with 64-bit time. Wraps __nanosleep64 __clock_nanosleep_time64 __thrd_sleep64 __select64
// __pselect64 __ppoll64 __epoll_pwait2_time64 __sigtimedwait64 __pthread_cond_timedwait64
// __pthread_cond_clockwait64 __pthread_mutex_timedlock64 __pthread_mutex_clocklock64
// __pthread_timedjoin_np64 __pthread_clockjoin_np64 __sem_timedwait64 __sem_clockwait64
// __pthread_rwlock_timedrdlock64 __pthread_rwlock_clockrdlock64 __pthread_rwlock_timedwrlock64
// __pthread_rwlock_clockwrlock64 __cnd_timedwait64 __mtx_timedlock64 __mq_timedsend_time64
// __mq_timedreceive_time64.

#include "vboard/interposer/wrap/time64/time64.h"

#include <mqueue.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <threads.h>

using namespace vboard;

NARROW(int, nanosleep, const Time32 *, Time32 *);
WRAP(int, __nanosleep64, const timespec *request, timespec *remaining) {
  if (!on_board())
    return REAL(__nanosleep64)(request, remaining);
  Out<Time32, timespec> rest(remaining);
  const int result = vboard_narrow_nanosleep(In<Time32>(request).pointer, rest.pointer);
  const int error = errno;
  if (result < 0 && error == EINTR)
    rest.store();
  errno = error;
  return result;
}

NARROW(int, clock_nanosleep, clockid_t, int, const Time32 *, Time32 *);
WRAP(int, __clock_nanosleep_time64, clockid_t clock, int flags, const timespec *request,
     timespec *remaining) {
  if (!on_board() || clock == CLOCK_PROCESS_CPUTIME_ID)
    return REAL(__clock_nanosleep_time64)(clock, flags, request, remaining);
  Out<Time32, timespec> rest(remaining);
  const int error =
      vboard_narrow_clock_nanosleep(clock, flags, In<Time32>(request).pointer, rest.pointer);
  if (error == EINTR && (flags & TIMER_ABSTIME) == 0)
    rest.store();
  return error;
}

WRAP(int, __thrd_sleep64, const timespec *request, timespec *remaining) {
  if (!on_board())
    return REAL(__thrd_sleep64)(request, remaining);
  const int error = vboard___clock_nanosleep_time64(CLOCK_REALTIME, 0, request, remaining);
  return error == 0 ? 0 : error == EINTR ? -1 : -2;
}

NARROW(int, select, int, fd_set *, fd_set *, fd_set *, Time32 *);
WRAP(int, __select64, int count, fd_set *reads, fd_set *writes, fd_set *excepts, timeval *limit) {
  if (!on_board())
    return REAL(__select64)(count, reads, writes, excepts, limit);
  // What is left of the limit comes back in its record.
  Out<Time32, timeval> left(limit);
  if (limit != nullptr)
    left.record = narrow(*limit);
  const int result = vboard_narrow_select(count, reads, writes, excepts, left.pointer);
  left.store();
  return result;
}

NARROW(int, pselect, int, fd_set *, fd_set *, fd_set *, const Time32 *, const sigset_t *);
WRAP(int, __pselect64, int count, fd_set *reads, fd_set *writes, fd_set *excepts,
     const timespec *limit, const sigset_t *mask) {
  return on_board()
             ? vboard_narrow_pselect(count, reads, writes, excepts, In<Time32>(limit).pointer, mask)
             : REAL(__pselect64)(count, reads, writes, excepts, limit, mask);
}

NARROW(int, ppoll, pollfd *, nfds_t, const Time32 *, const sigset_t *);
WRAP(int, __ppoll64, pollfd *fds, nfds_t count, const timespec *limit, const sigset_t *mask) {
  return on_board() ? vboard_narrow_ppoll(fds, count, In<Time32>(limit).pointer, mask)
                    : REAL(__ppoll64)(fds, count, limit, mask);
}

NARROW(int, epoll_pwait2, int, epoll_event *, int, const Time32 *, const sigset_t *);
WRAP(int, __epoll_pwait2_time64, int set, epoll_event *events, int room, const timespec *limit,
     const sigset_t *mask) {
  return on_board() ? vboard_narrow_epoll_pwait2(set, events, room, In<Time32>(limit).pointer, mask)
                    : REAL(__epoll_pwait2_time64)(set, events, room, limit, mask);
}

NARROW(int, sigtimedwait, const sigset_t *, siginfo_t *, const Time32 *);
WRAP(int, __sigtimedwait64, const sigset_t *set, siginfo_t *info, const timespec *limit) {
  return on_board() ? vboard_narrow_sigtimedwait(set, info, In<Time32>(limit).pointer)
                    : REAL(__sigtimedwait64)(set, info, limit);
}

NARROW(int, pthread_cond_timedwait, pthread_cond_t *, pthread_mutex_t *, const Time32 *);
WRAP(int, __pthread_cond_timedwait64, pthread_cond_t *condition, pthread_mutex_t *mutex,
     const timespec *limit) {
  return on_board()
             ? vboard_narrow_pthread_cond_timedwait(condition, mutex, In<Time32>(limit).pointer)
             : REAL(__pthread_cond_timedwait64)(condition, mutex, limit);
}

NARROW(int, pthread_cond_clockwait, pthread_cond_t *, pthread_mutex_t *, clockid_t, const Time32 *);
WRAP(int, __pthread_cond_clockwait64, pthread_cond_t *condition, pthread_mutex_t *mutex,
     clockid_t clock, const timespec *limit) {
  return on_board() ? vboard_narrow_pthread_cond_clockwait(condition, mutex, clock,
                                                           In<Time32>(limit).pointer)
                    : REAL(__pthread_cond_clockwait64)(condition, mutex, clock, limit);
}

NARROW(int, pthread_mutex_timedlock, pthread_mutex_t *, const Time32 *);
WRAP(int, __pthread_mutex_timedlock64, pthread_mutex_t *mutex, const timespec *limit) {
  return on_board() ? vboard_narrow_pthread_mutex_timedlock(mutex, In<Time32>(limit).pointer)
                    : REAL(__pthread_mutex_timedlock64)(mutex, limit);
}

NARROW(int, pthread_mutex_clocklock, pthread_mutex_t *, clockid_t, const Time32 *);
WRAP(int, __pthread_mutex_clocklock64, pthread_mutex_t *mutex, clockid_t clock,
     const timespec *limit) {
  return on_board() ? vboard_narrow_pthread_mutex_clocklock(mutex, clock, In<Time32>(limit).pointer)
                    : REAL(__pthread_mutex_clocklock64)(mutex, clock, limit);
}

NARROW(int, pthread_timedjoin_np, pthread_t, void **, const Time32 *);
WRAP(int, __pthread_timedjoin_np64, pthread_t thread, void **value, const timespec *limit) {
  return on_board() ? vboard_narrow_pthread_timedjoin_np(thread, value, In<Time32>(limit).pointer)
                    : REAL(__pthread_timedjoin_np64)(thread, value, limit);
}

NARROW(int, pthread_clockjoin_np, pthread_t, void **, clockid_t, const Time32 *);
WRAP(int, __pthread_clockjoin_np64, pthread_t thread, void **value, clockid_t clock,
     const timespec *limit) {
  return on_board()
             ? vboard_narrow_pthread_clockjoin_np(thread, value, clock, In<Time32>(limit).pointer)
             : REAL(__pthread_clockjoin_np64)(thread, value, clock, limit);
}

NARROW(int, sem_timedwait, sem_t *, const Time32 *);
WRAP(int, __sem_timedwait64, sem_t *semaphore, const timespec *limit) {
  return on_board() ? vboard_narrow_sem_timedwait(semaphore, In<Time32>(limit).pointer)
                    : REAL(__sem_timedwait64)(semaphore, limit);
}

NARROW(int, sem_clockwait, sem_t *, clockid_t, const Time32 *);
WRAP(int, __sem_clockwait64, sem_t *semaphore, clockid_t clock, const timespec *limit) {
  return on_board() ? vboard_narrow_sem_clockwait(semaphore, clock, In<Time32>(limit).pointer)
                    : REAL(__sem_clockwait64)(semaphore, clock, limit);
}

NARROW(int, pthread_rwlock_timedrdlock, pthread_rwlock_t *, const Time32 *);
WRAP(int, __pthread_rwlock_timedrdlock64, pthread_rwlock_t *lock, const timespec *limit) {
  return on_board() ? vboard_narrow_pthread_rwlock_timedrdlock(lock, In<Time32>(limit).pointer)
                    : REAL(__pthread_rwlock_timedrdlock64)(lock, limit);
}

NARROW(int, pthread_rwlock_clockrdlock, pthread_rwlock_t *, clockid_t, const Time32 *);
WRAP(int, __pthread_rwlock_clockrdlock64, pthread_rwlock_t *lock, clockid_t clock,
     const timespec *limit) {
  return on_board()
             ? vboard_narrow_pthread_rwlock_clockrdlock(lock, clock, In<Time32>(limit).pointer)
             : REAL(__pthread_rwlock_clockrdlock64)(lock, clock, limit);
}

NARROW(int, pthread_rwlock_timedwrlock, pthread_rwlock_t *, const Time32 *);
WRAP(int, __pthread_rwlock_timedwrlock64, pthread_rwlock_t *lock, const timespec *limit) {
  return on_board() ? vboard_narrow_pthread_rwlock_timedwrlock(lock, In<Time32>(limit).pointer)
                    : REAL(__pthread_rwlock_timedwrlock64)(lock, limit);
}

NARROW(int, pthread_rwlock_clockwrlock, pthread_rwlock_t *, clockid_t, const Time32 *);
WRAP(int, __pthread_rwlock_clockwrlock64, pthread_rwlock_t *lock, clockid_t clock,
     const timespec *limit) {
  return on_board()
             ? vboard_narrow_pthread_rwlock_clockwrlock(lock, clock, In<Time32>(limit).pointer)
             : REAL(__pthread_rwlock_clockwrlock64)(lock, clock, limit);
}

NARROW(int, cnd_timedwait, cnd_t *, mtx_t *, const Time32 *);
WRAP(int, __cnd_timedwait64, cnd_t *condition, mtx_t *mutex, const timespec *limit) {
  return on_board() ? vboard_narrow_cnd_timedwait(condition, mutex, In<Time32>(limit).pointer)
                    : REAL(__cnd_timedwait64)(condition, mutex, limit);
}

NARROW(int, mtx_timedlock, mtx_t *, const Time32 *);
WRAP(int, __mtx_timedlock64, mtx_t *mutex, const timespec *limit) {
  return on_board() ? vboard_narrow_mtx_timedlock(mutex, In<Time32>(limit).pointer)
                    : REAL(__mtx_timedlock64)(mutex, limit);
}

NARROW(int, mq_timedsend, mqd_t, const char *, std::size_t, unsigned int, const Time32 *);
WRAP(int, __mq_timedsend_time64, mqd_t queue, const char *bytes, std::size_t size,
     unsigned int priority, const timespec *limit) {
  return on_board()
             ? vboard_narrow_mq_timedsend(queue, bytes, size, priority, In<Time32>(limit).pointer)
             : REAL(__mq_timedsend_time64)(queue, bytes, size, priority, limit);
}

NARROW(ssize_t, mq_timedreceive, mqd_t, char *, std::size_t, unsigned int *, const Time32 *);
WRAP(ssize_t, __mq_timedreceive_time64, mqd_t queue, char *bytes, std::size_t size,
     unsigned int *priority, const timespec *limit) {
  return on_board() ? vboard_narrow_mq_timedreceive(queue, bytes, size, priority,
                                                    In<Time32>(limit).pointer)
                    : REAL(__mq_timedreceive_time64)(queue, bytes, size, priority, limit);
}
