// Wraps setitimer getitimer alarm ualarm timer_create timer_settime timer_gettime timer_getoverrun
// timer_delete.
//
// At a fixed speed the timers are the kernel's, with their times divided: their signals interrupt
// as natively as on a board. In a jumping run they are the schedule's, which sends the signals.

#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/seats.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <signal.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

using namespace vboard;

DECLARE_WRAPPED(int, timer_delete, timer_t);

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

// The timers of a jumping run, under the schedule's lock.
struct Timers {
  Timers() {
    lock_engine(saved);
  }
  ~Timers() {
    unlock_engine(saved);
  }
  Timers(const Timers &) = delete;
  Timers &operator=(const Timers &) = delete;

  RunTimer *find(std::int64_t id) {
    return find_timer(schedule(), getpid(), id);
  }
  RunTimer *make(std::int64_t id) {
    return make_timer(schedule(), getpid(), id);
  }
  void set(RunTimer &timer, BoardTime expiry, BoardTime interval) {
    timer.interval = interval;
    timer.expiry = expiry;
    schedule().next_due = earliest_deadline(schedule());
  }

  sigset_t saved;
};

// The number that the kernel gave to a timer; it may be a pointer of libc's.
std::int64_t number_of(timer_t id) {
  return static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(id));
}

// What is left until the next expiry; a running timer never shows zero.
BoardTime rest_of(const RunTimer &timer) {
  return timer.expiry == kNever ? 0 : std::max<BoardTime>(timer.expiry - current_time(), 1000);
}

bool is_boards(timer_t id) {
  if (!on_board() || !jumping())
    return false;
  Timers timers;
  return timers.find(number_of(id)) != nullptr;
}

// The alarm timer of a jumping run: sets it and tells what was left. False without room for it.
bool exchange_alarm(const itimerval *value, itimerval &old) {
  Timers timers;
  RunTimer *alarm = timers.find(kAlarm);
  old = {};
  if (alarm != nullptr)
    old = {timeval_of(alarm->interval), timeval_of(rest_of(*alarm))};
  if (value == nullptr)
    return true;
  const BoardTime first = nanoseconds_of(value->it_value);
  if (first == 0) {
    if (alarm != nullptr)
      alarm->used = 0;
    return true;
  }
  if (alarm == nullptr)
    alarm = timers.make(kAlarm);
  if (alarm == nullptr)
    return false;
  alarm->notify = SIGEV_SIGNAL;
  alarm->signal = SIGALRM;
  timers.set(*alarm, deadline_after(first), nanoseconds_of(value->it_interval));
  return true;
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
    itimerval before;
    if (!exchange_alarm(value, before))
      return report(-EAGAIN);
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
    exchange_alarm(nullptr, *value);
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
  Timers timers;
  RunTimer *timer = timers.make(number_of(*out));
  if (timer == nullptr) {
    REAL(timer_delete)(*out);
    return report(-EAGAIN);
  }
  timer->clock = clock;
  timer->notify = event != nullptr ? event->sigev_notify : SIGEV_SIGNAL;
  timer->signal = event != nullptr ? event->sigev_signo : SIGALRM;
  if (timer->notify == SIGEV_THREAD_ID)
    timer->thread = event->_sigev_un._tid;
  timer->value = event != nullptr ? reinterpret_cast<std::uintptr_t>(event->sigev_value.sival_ptr)
                                  : reinterpret_cast<std::uintptr_t>(*out);
  return 0;
}

WRAP(int, timer_settime, timer_t id, int flags, const itimerspec *value, itimerspec *old) {
  const bool ours = is_boards(id);
  const bool at_speed = !ours && on_board() && !jumping();
  if (value == nullptr || !is_valid_time(value->it_value) || !is_valid_time(value->it_interval)) {
    errno = EINVAL;
    return -1;
  }
  if (!ours && !at_speed)
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
  Timers timers;
  RunTimer &timer = *timers.find(number_of(id));
  if (old != nullptr)
    *old = {timespec_of(timer.interval), timespec_of(rest_of(timer))};
  BoardTime expiry = kNever;
  if (first != 0 && (flags & TIMER_ABSTIME)) {
    const bool calendar = timer.clock == CLOCK_REALTIME || timer.clock == CLOCK_REALTIME_ALARM;
    expiry = std::max<BoardTime>(saturated_sum(first, -(calendar ? run_page().calendar_start.load()
                                                                 : run_page().monotonic_start)),
                                 0);
  } else if (first != 0) {
    expiry = deadline_after(first);
  }
  timers.set(timer, expiry, first == 0 ? 0 : interval);
  return 0;
}

WRAP(int, timer_gettime, timer_t id, itimerspec *value) {
  if (!is_boards(id)) {
    const int result = REAL(timer_gettime)(id, value);
    if (result == 0 && on_board() && !jumping())
      *value = {timespec_of(to_board(nanoseconds_of(value->it_interval))),
                timespec_of(to_board(nanoseconds_of(value->it_value)))};
    return result;
  }
  Timers timers;
  const RunTimer &timer = *timers.find(number_of(id));
  *value = {timespec_of(timer.interval), timespec_of(rest_of(timer))};
  return 0;
}

WRAP(int, timer_getoverrun, timer_t id) {
  return is_boards(id) ? 0 : REAL(timer_getoverrun)(id);
}

WRAP(int, timer_delete, timer_t id) {
  if (is_boards(id)) {
    Timers timers;
    timers.find(number_of(id))->used = 0;
  }
  return REAL(timer_delete)(id);
}
