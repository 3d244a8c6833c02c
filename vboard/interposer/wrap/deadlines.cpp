#include "vboard/interposer/wrap/deadlines.h"

#include "vboard/base/calendar.h"
#include "vboard/interposer/core/wrap.h"

DECLARE_WRAPPED(int, clock_gettime, clockid_t, timespec *);

namespace vboard {

bool is_calendar(clockid_t clock) {
  return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_TAI ||
         clock == CLOCK_REALTIME_ALARM;
}

std::int64_t clock_now(clockid_t clock) {
  return is_calendar(clock) ? current_calendar_time() : run_page().monotonic_start + current_time();
}

BoardTime board_moment(clockid_t clock, const timespec &absolute) {
  return saturated_sum(
      nanoseconds_of(absolute),
      -(is_calendar(clock) ? run_page().calendar_start.load() : run_page().monotonic_start));
}

namespace {

timespec moment_on(clockid_t pc_clock, BoardTime moment) {
  const timespec rest = pc_duration(saturated_sum(moment, -current_time()));
  timespec now;
  REAL(clock_gettime)(pc_clock, &now);
  return timespec_of(saturated_sum(nanoseconds_of(now), nanoseconds_of(rest)));
}

}  // namespace

timespec pc_moment(BoardTime moment) {
  return moment_on(CLOCK_MONOTONIC, moment);
}

timespec pc_calendar_moment(BoardTime moment) {
  return moment_on(CLOCK_REALTIME, moment);
}

clockid_t clock_of(const pthread_cond_t &condition) {
  // libc keeps pthread_condattr_setclock()'s choice in this bit, since a condition that was made
  // by its initializer alone passes no call on its way.
  constexpr unsigned int monotonic = 2;
  return (condition.__data.__wrefs & monotonic) != 0 ? CLOCK_MONOTONIC : CLOCK_REALTIME;
}

}  // namespace vboard
