// Clocks and timers with 64-bit time. Wraps __clock_gettime64 __gettimeofday64 __time64
// __timespec_get64 __clock_settime64 __settimeofday64 __adjtime64 ___adjtimex64 __clock_adjtime64
// __setitimer64 __getitimer64 __timer_settime64 __timer_gettime64 __timerfd_settime64
// __timerfd_gettime64.

#include "vboard/interposer/wrap/time64/time64.h"

#include "vboard/base/calendar.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/wrap/clocks.h"

#include <signal.h>
#include <sys/timex.h>

using namespace vboard;

WRAP(int, __clock_gettime64, clockid_t clock, timespec *out) {
  std::int64_t now;
  // What a program has worked is no affair of the board's.
  if (clock == CLOCK_PROCESS_CPUTIME_ID || clock == CLOCK_THREAD_CPUTIME_ID || !on_board() ||
      !read_clock(clock, now))
    return REAL(__clock_gettime64)(clock, out);
  *out = timespec_of_board(now);
  return 0;
}

WRAP(int, __gettimeofday64, timeval *out, void *zone) {
  if (!on_board())
    return REAL(__gettimeofday64)(out, zone);
  if (zone != nullptr)
    *static_cast<struct timezone *>(zone) = {};
  if (out != nullptr) {
    const std::int64_t now = read_calendar();
    out->tv_sec = now / kSecond;
    out->tv_usec = now % kSecond / 1000;
  }
  return 0;
}

WRAP(time_t, __time64, time_t *out) {
  if (!on_board())
    return REAL(__time64)(out);
  const time_t now = read_calendar() / kSecond;
  if (out != nullptr)
    *out = now;
  return now;
}

WRAP(int, __timespec_get64, timespec *out, int base) {
  if (!on_board() || base != TIME_UTC)
    return REAL(__timespec_get64)(out, base);
  *out = timespec_of_board(read_calendar());
  return base;
}

WRAP(int, __clock_settime64, clockid_t clock, const timespec *value) {
  if (!on_board())
    return REAL(__clock_settime64)(clock, value);
  if (clock != CLOCK_REALTIME || value->tv_sec < 0 || value->tv_nsec < 0 ||
      value->tv_nsec >= kSecond)
    return report(-EINVAL);
  return set_calendar(saturated_nanoseconds(value->tv_sec, value->tv_nsec), "clock_settime");
}

WRAP(int, __settimeofday64, const timeval *value, const struct timezone *zone) {
  if (!on_board())
    return REAL(__settimeofday64)(value, zone);
  if (value == nullptr)
    return 0;
  if (value->tv_usec < 0 || value->tv_usec >= 1'000'000)
    return report(-EINVAL);
  return set_calendar(saturated_nanoseconds(value->tv_sec, value->tv_usec * 1000), "settimeofday");
}

NARROW(int, adjtime, const Time32 *, Time32 *);
WRAP(int, __adjtime64, const timeval *delta, timeval *old) {
  if (!on_board())
    return REAL(__adjtime64)(delta, old);
  Out<Time32, timeval> before(old);
  const int result = vboard_narrow_adjtime(In<Time32>(delta).pointer, before.pointer);
  before.store();
  return result;
}

namespace {

int read_adjustment(timex *record) {
  const std::int64_t now = current_calendar_time();
  record->time.tv_sec = now / kSecond;
  record->time.tv_usec = now % kSecond / 1000;
  record->status = STA_UNSYNC;
  return TIME_ERROR;
}

}  // namespace

// The board's clock is not disciplined: what is asked for has no effect.
WRAP(int, ___adjtimex64, timex *record) {
  return on_board() ? read_adjustment(record) : REAL(___adjtimex64)(record);
}

WRAP(int, __clock_adjtime64, clockid_t clock, timex *record) {
  return on_board() ? read_adjustment(record) : REAL(__clock_adjtime64)(clock, record);
}

NARROW(int, setitimer, int, const Interval32 *, Interval32 *);
WRAP(int, __setitimer64, int which, const itimerval *value, itimerval *old) {
  if (!on_board())
    return REAL(__setitimer64)(which, value, old);
  Out<Interval32, itimerval> before(old);
  const int result = vboard_narrow_setitimer(which, In<Interval32>(value).pointer, before.pointer);
  before.store();
  return result;
}

NARROW(int, getitimer, int, Interval32 *);
WRAP(int, __getitimer64, int which, itimerval *value) {
  if (!on_board())
    return REAL(__getitimer64)(which, value);
  Out<Interval32, itimerval> now(value);
  const int result = vboard_narrow_getitimer(which, now.pointer);
  now.store();
  return result;
}

NARROW(int, timer_settime, timer_t, int, const Interval32 *, Interval32 *);
WRAP(int, __timer_settime64, timer_t id, int flags, const itimerspec *value, itimerspec *old) {
  if (!on_board())
    return REAL(__timer_settime64)(id, flags, value, old);
  Out<Interval32, itimerspec> before(old);
  const int result =
      vboard_narrow_timer_settime(id, flags, In<Interval32>(value).pointer, before.pointer);
  before.store();
  return result;
}

NARROW(int, timer_gettime, timer_t, Interval32 *);
WRAP(int, __timer_gettime64, timer_t id, itimerspec *value) {
  if (!on_board())
    return REAL(__timer_gettime64)(id, value);
  Out<Interval32, itimerspec> now(value);
  const int result = vboard_narrow_timer_gettime(id, now.pointer);
  now.store();
  return result;
}

NARROW(int, timerfd_settime, int, int, const Interval32 *, Interval32 *);
WRAP(int, __timerfd_settime64, int fd, int flags, const itimerspec *value, itimerspec *old) {
  if (!on_board())
    return REAL(__timerfd_settime64)(fd, flags, value, old);
  Out<Interval32, itimerspec> before(old);
  const int result =
      vboard_narrow_timerfd_settime(fd, flags, In<Interval32>(value).pointer, before.pointer);
  if (result == 0)
    before.store();
  return result;
}

NARROW(int, timerfd_gettime, int, Interval32 *);
WRAP(int, __timerfd_gettime64, int fd, itimerspec *value) {
  if (!on_board())
    return REAL(__timerfd_gettime64)(fd, value);
  Out<Interval32, itimerspec> now(value);
  const int result = vboard_narrow_timerfd_gettime(fd, now.pointer);
  if (result == 0)
    now.store();
  return result;
}
