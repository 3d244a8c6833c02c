// Wraps setitimer getitimer alarm ualarm timer_create timer_settime timer_gettime timer_getoverrun
// timer_delete.
//
// At a fixed speed the timers are the kernel's, with their times divided: their signals interrupt
// as natively as on a board. Only the clock of each is kept here. In a jumping run the schedule
// keeps their times, and sends the signals.

#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/seats.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"
#include "vboard/interposer/wrap/deadlines.h"
#include "vboard/interposer/wrap/timer_threads.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

using namespace vboard;

DECLARE_WRAPPED(int, timer_settime, timer_t, int, const itimerspec *, itimerspec *);
DECLARE_WRAPPED(int, timer_delete, timer_t);

namespace {

timeval timeval_of(BoardTime time) {
  return {static_cast<time_t>(time / kSecond), static_cast<suseconds_t>(time % kSecond / 1000)};
}

using vboard::nanoseconds_of;  // of a timespec

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

namespace {

bool is_cpu_clock(clockid_t clock) {
  return clock == CLOCK_PROCESS_CPUTIME_ID || clock == CLOCK_THREAD_CPUTIME_ID || clock < 0;
}

// For the search of a free place alone: the engine sees a timer when all of it is there.
pthread_mutex_t places_lock = PTHREAD_MUTEX_INITIALIZER;

// Notes a timer of the kernel's: false when there is no room for it.
bool keep_timer(timer_t id, clockid_t clock, const sigevent *event) {
  pthread_mutex_lock(&places_lock);
  PosixTimer *place = nullptr;
  for (PosixTimer &one : posix_timers) {
    if (!one.used.load(std::memory_order_relaxed)) {
      place = &one;
      break;
    }
  }
  if (place != nullptr) {
    place->id = id;
    place->clock = clock;
    if (event != nullptr) {
      place->event = *event;
    } else {
      place->event = {};
      place->event.sigev_notify = SIGEV_SIGNAL;
      place->event.sigev_signo = SIGALRM;
      memcpy(&place->event.sigev_value, &id, sizeof id);
    }
    set_timer(place->timer, kNever, 0);
    place->used.store(true, std::memory_order_release);
  }
  pthread_mutex_unlock(&places_lock);
  return place != nullptr;
}

// In a jumping run the schedule keeps a timer's times: false when it has no room. A timer that was
// deleted in another way than by timer_delete() may still have its place.
bool schedule_timer(timer_t id) {
  if (!jumping())
    return true;
  const PosixTimer &kept = *find_timer(id);
  Timers timers;
  RunTimer *timer = timers.find(number_of(id));
  if (timer == nullptr)
    timer = timers.make(number_of(id));
  if (timer == nullptr)
    return false;
  timer->notify = kept.event.sigev_notify;
  timer->signal = kept.event.sigev_signo;
  if (timer->notify == SIGEV_THREAD_ID)
    timer->thread = kept.event._sigev_un._tid;
  timer->value = reinterpret_cast<std::uintptr_t>(kept.event.sigev_value.sival_ptr);
  return true;
}

}  // namespace

WRAP(int, timer_create, clockid_t clock, sigevent *event, timer_t *out) {
  if (!on_board() || is_cpu_clock(clock))
    return REAL(timer_create)(clock, event, out);
  // In a jumping run the kernel gives the number alone; its own timer never runs.
  sigevent silent = {};
  silent.sigev_notify = SIGEV_NONE;
  if (const int result = REAL(timer_create)(clock, jumping() ? &silent : event, out); result != 0)
    return result;
  const bool calls = event != nullptr && event->sigev_notify == SIGEV_THREAD;
  const bool kept = jumping() && calls ? add_thread_timer(*out, clock, *event) == 0
                                       : keep_timer(*out, clock, event) && schedule_timer(*out);
  if (kept)
    return 0;
  REAL(timer_delete)(*out);
  errno = EAGAIN;
  return -1;
}

namespace {

// A timer that counts in board time; null for one of the kernel's alone.
PosixTimer *find_any_timer(timer_t id) {
  if (!on_board())
    return nullptr;
  PosixTimer *timer = find_timer(id);
  return timer != nullptr ? timer : find_thread_timer(id);
}

itimerspec to_board(const itimerspec &pc) {
  return {timespec_of(to_board(nanoseconds_of(pc.it_interval))),
          timespec_of(to_board(nanoseconds_of(pc.it_value)))};
}

// At a fixed speed an absolute time is what is left until then.
int set_kernel_timer(const PosixTimer &timer, int flags, const itimerspec &value, itimerspec *old) {
  BoardTime first = nanoseconds_of(value.it_value);
  if (first != 0 && (flags & TIMER_ABSTIME) != 0)
    first = std::max<BoardTime>(saturated_sum(first, -clock_now(timer.clock)), 1);
  const itimerspec pc = {timespec_of(to_pc(nanoseconds_of(value.it_interval))),
                         timespec_of(to_pc(first))};
  const int result = REAL(timer_settime)(timer.id, 0, &pc, old);
  if (result == 0 && old != nullptr)
    *old = to_board(*old);
  return result;
}

bool calls_function(const PosixTimer &timer) {
  return timer.event.sigev_notify == SIGEV_THREAD;
}

// Under the lock.
itimerspec state_of_timer(const PosixTimer &timer, Timers &timers) {
  if (calls_function(timer))
    return {timespec_of(timer.timer.interval), timespec_of(rest_of(timer.timer))};
  const RunTimer *run_timer = timers.find(number_of(timer.id));
  if (run_timer == nullptr)
    return {};
  return {timespec_of(run_timer->interval), timespec_of(rest_of(*run_timer))};
}

void set_times(PosixTimer &timer, Timers &timers, BoardTime expiry, BoardTime interval) {
  if (calls_function(timer))
    set_timer(timer.timer, expiry, interval);
  else if (RunTimer *run_timer = timers.find(number_of(timer.id)))
    timers.set(*run_timer, expiry, interval);
}

}  // namespace

WRAP(int, timer_settime, timer_t id, int flags, const itimerspec *value, itimerspec *old) {
  PosixTimer *timer = find_any_timer(id);
  if (timer == nullptr)
    return REAL(timer_settime)(id, flags, value, old);
  if (value == nullptr || !is_valid_time(value->it_value) || !is_valid_time(value->it_interval)) {
    errno = EINVAL;
    return -1;
  }
  if (!jumping())
    return set_kernel_timer(*timer, flags, *value, old);

  const BoardTime first = nanoseconds_of(value->it_value);
  BoardTime expiry = kNever;
  if (first != 0 && (flags & TIMER_ABSTIME))
    expiry = std::max<BoardTime>(board_moment(timer->clock, value->it_value), 0);
  else if (first != 0)
    expiry = deadline_after(first);
  {
    Timers timers;
    if (old != nullptr)
      *old = state_of_timer(*timer, timers);
    set_times(*timer, timers, expiry, first == 0 ? 0 : nanoseconds_of(value->it_interval));
  }
  if (calls_function(*timer))
    renew_thread_timer(*timer);
  return 0;
}

WRAP(int, timer_gettime, timer_t id, itimerspec *value) {
  PosixTimer *timer = find_any_timer(id);
  if (timer != nullptr && jumping()) {
    Timers timers;
    *value = state_of_timer(*timer, timers);
    return 0;
  }
  const int result = REAL(timer_gettime)(id, value);
  if (result == 0 && timer != nullptr)
    *value = to_board(*value);
  return result;
}

WRAP(int, timer_getoverrun, timer_t id) {
  return find_any_timer(id) != nullptr && jumping() ? 0 : REAL(timer_getoverrun)(id);
}

WRAP(int, timer_delete, timer_t id) {
  PosixTimer *timer = find_any_timer(id);
  if (timer != nullptr && jumping() && calls_function(*timer))
    delete_thread_timer(*timer);
  if (timer != nullptr && find_timer(id) == timer) {
    if (jumping()) {
      Timers timers;
      if (RunTimer *run_timer = timers.find(number_of(id)))
        run_timer->used = 0;
    }
    timer->used.store(false, std::memory_order_release);
  }
  return REAL(timer_delete)(id);
}
