// Wraps setitimer getitimer alarm ualarm timer_create timer_settime timer_gettime timer_getoverrun
// timer_delete.
//
// At a fixed speed the timers are the kernel's, with their times divided: their signals interrupt
// as natively as on a board. In a jumping run they are kept here, and the engine raises the
// signals.

#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/jumping.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/timers.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>

#include <algorithm>

using namespace vboard;

namespace {

timeval timeval_of(BoardTime time) {
  return {static_cast<time_t>(time / kSecond), static_cast<suseconds_t>(time % kSecond / 1000)};
}

BoardTime nanoseconds_of(const timeval &time) {
  return saturated_nanoseconds(time.tv_sec, BoardTime{time.tv_usec} * 1000);
}

itimerval scaled(const itimerval &from, BoardTime (*convert)(BoardTime)) {
  itimerval out;
  out.it_value = timeval_of(convert(nanoseconds_of(from.it_value)));
  out.it_interval = timeval_of(convert(nanoseconds_of(from.it_interval)));
  return out;
}

// A timer that runs must not be scaled down to one that is stopped.
BoardTime to_pc(BoardTime time) {
  return time == 0 ? 0 : std::max<BoardTime>(pc_from_board(run_page(), time), 1000);
}

BoardTime to_board(BoardTime time) {
  return board_from_pc(run_page(), time);
}

bool is_valid(const timeval &time) {
  return time.tv_sec >= 0 && time.tv_usec >= 0 && time.tv_usec < 1'000'000;
}

// The alarm timer of a jumping run: sets it and tells what was left.
itimerval exchange_alarm(const itimerval *value) {
  sigset_t saved;
  lock_engine(saved);
  itimerval old = {timeval_of(alarm_timer.interval), timeval_of(rest_of(alarm_timer))};
  if (value != nullptr) {
    const BoardTime first = nanoseconds_of(value->it_value);
    set_timer(alarm_timer, first == 0 ? kNever : deadline_after(first),
              first == 0 ? 0 : nanoseconds_of(value->it_interval));
  }
  unlock_engine(saved);
  return old;
}

}  // namespace

WRAP(int, setitimer, int which, const itimerval *value, itimerval *old) {
  if (!on_board() || which != ITIMER_REAL)
    return REAL(setitimer)(which, value, old);
  if (value != nullptr && (!is_valid(value->it_value) || !is_valid(value->it_interval))) {
    errno = EINVAL;
    return -1;
  }
  if (jumping()) {
    const itimerval before = exchange_alarm(value);
    if (old != nullptr)
      *old = before;
    return 0;
  }
  itimerval pc;
  if (value != nullptr)
    pc = scaled(*value, to_pc);
  const int result = REAL(setitimer)(which, value != nullptr ? &pc : nullptr, old);
  if (result == 0 && old != nullptr)
    *old = scaled(*old, to_board);
  return result;
}

WRAP(int, getitimer, int which, itimerval *value) {
  if (!on_board() || which != ITIMER_REAL)
    return REAL(getitimer)(which, value);
  if (jumping()) {
    *value = exchange_alarm(nullptr);
    return 0;
  }
  const int result = REAL(getitimer)(which, value);
  if (result == 0)
    *value = scaled(*value, to_board);
  return result;
}

WRAP(unsigned int, alarm, unsigned int seconds) {
  if (!on_board())
    return REAL(alarm)(seconds);
  const itimerval value = {{0, 0}, {static_cast<time_t>(seconds), 0}};
  itimerval old = {};
  vboard_setitimer(ITIMER_REAL, &value, &old);
  // The kernel rounds to the nearest second, but never down to zero.
  unsigned int rest = static_cast<unsigned int>(old.it_value.tv_sec);
  if (old.it_value.tv_usec >= 500'000 || (rest == 0 && old.it_value.tv_usec > 0))
    ++rest;
  return rest;
}

WRAP(useconds_t, ualarm, useconds_t value, useconds_t interval) {
  if (!on_board())
    return REAL(ualarm)(value, interval);
  const itimerval timer = {timeval_of(BoardTime{interval} * 1000),
                           timeval_of(BoardTime{value} * 1000)};
  itimerval old = {};
  vboard_setitimer(ITIMER_REAL, &timer, &old);
  return static_cast<useconds_t>(nanoseconds_of(old.it_value) / 1000);
}

WRAP(int, timer_create, clockid_t clock, sigevent *event, timer_t *out) {
  const bool ours = on_board() && jumping() && clock != CLOCK_PROCESS_CPUTIME_ID &&
                    clock != CLOCK_THREAD_CPUTIME_ID &&
                    (event == nullptr || event->sigev_notify != SIGEV_THREAD);
  if (!ours)
    return REAL(timer_create)(clock, event, out);
  // The kernel gives the number; its own timer never runs.
  sigevent silent = {};
  silent.sigev_notify = SIGEV_NONE;
  int result = REAL(timer_create)(clock, &silent, out);
  if (result != 0)
    return result;
  sigset_t saved;
  lock_engine(saved);
  result = -1;
  for (PosixTimer &one : posix_timers) {
    if (one.used.load(std::memory_order_relaxed))
      continue;
    one.id = *out;
    one.clock = clock;
    if (event != nullptr) {
      one.event = *event;
    } else {
      one.event = {};
      one.event.sigev_notify = SIGEV_SIGNAL;
      one.event.sigev_signo = SIGALRM;
      memcpy(&one.event.sigev_value, out, sizeof(*out));
    }
    set_timer(one.timer, kNever, 0);
    one.used.store(true, std::memory_order_relaxed);
    result = 0;
    break;
  }
  unlock_engine(saved);
  if (result != 0)
    errno = EAGAIN;
  return result;
}

WRAP(int, timer_settime, timer_t id, int flags, const itimerspec *value, itimerspec *old) {
  PosixTimer *timer = on_board() ? find_timer(id) : nullptr;
  const bool at_speed = timer == nullptr && on_board() && !jumping();
  if (value == nullptr || !is_valid_time(value->it_value) || !is_valid_time(value->it_interval)) {
    errno = EINVAL;
    return -1;
  }
  if (timer == nullptr && !at_speed)
    return REAL(timer_settime)(id, flags, value, old);

  BoardTime first = nanoseconds_of(value->it_value);
  const BoardTime interval = nanoseconds_of(value->it_interval);
  if (at_speed) {
    if (first != 0 && (flags & TIMER_ABSTIME)) {
      // Which clock it belongs to is not known here; the two differ by decades.
      const bool calendar = first > current_calendar_time() / 2;
      const BoardTime now =
          calendar ? current_calendar_time() : run_page().monotonic_start + current_time();
      first = std::max<BoardTime>(first - now, 1);
    }
    const itimerspec pc = {timespec_of(to_pc(interval)), timespec_of(to_pc(first))};
    const int result = REAL(timer_settime)(id, 0, &pc, old);
    if (result == 0 && old != nullptr)
      *old = {timespec_of(to_board(nanoseconds_of(old->it_interval))),
              timespec_of(to_board(nanoseconds_of(old->it_value)))};
    return result;
  }
  sigset_t saved;
  lock_engine(saved);
  if (old != nullptr)
    *old = {timespec_of(timer->timer.interval), timespec_of(rest_of(timer->timer))};
  BoardTime expiry = kNever;
  if (first != 0 && (flags & TIMER_ABSTIME)) {
    const bool calendar = timer->clock == CLOCK_REALTIME || timer->clock == CLOCK_REALTIME_ALARM;
    expiry = std::max<BoardTime>(saturated_sum(first, -(calendar ? run_page().calendar_start.load()
                                                                 : run_page().monotonic_start)),
                                 0);
  } else if (first != 0) {
    expiry = deadline_after(first);
  }
  set_timer(timer->timer, expiry, first == 0 ? 0 : interval);
  unlock_engine(saved);
  return 0;
}

WRAP(int, timer_gettime, timer_t id, itimerspec *value) {
  PosixTimer *timer = on_board() ? find_timer(id) : nullptr;
  if (timer == nullptr) {
    const int result = REAL(timer_gettime)(id, value);
    if (result == 0 && on_board() && !jumping())
      *value = {timespec_of(to_board(nanoseconds_of(value->it_interval))),
                timespec_of(to_board(nanoseconds_of(value->it_value)))};
    return result;
  }
  *value = {timespec_of(timer->timer.interval), timespec_of(rest_of(timer->timer))};
  return 0;
}

WRAP(int, timer_getoverrun, timer_t id) {
  return on_board() && find_timer(id) != nullptr ? 0 : REAL(timer_getoverrun)(id);
}

WRAP(int, timer_delete, timer_t id) {
  PosixTimer *timer = on_board() ? find_timer(id) : nullptr;
  if (timer != nullptr)
    timer->used.store(false, std::memory_order_relaxed);
  return REAL(timer_delete)(id);
}
