// Wraps clock_gettime gettimeofday time timespec_get; clock_settime settimeofday stime
// adjtime adjtimex ntp_adjtime clock_adjtime.
//
// Setting the clock sets the board's: the PC's stays as it is.

#include "vboard/interposer/wrap/clocks.h"

#include "vboard/base/calendar.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/jumping.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/timer_files.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <sys/time.h>
#include <sys/timex.h>
#include <time.h>

using namespace vboard;

namespace vboard {

// Reading a clock takes time as well: a program may wait for it in a loop.
std::int64_t read_calendar() {
  spend_poll();
  return current_calendar_time();
}

bool read_clock(clockid_t clock, std::int64_t &out) {
  switch (clock) {
    case CLOCK_REALTIME:
    case CLOCK_REALTIME_COARSE:
    case CLOCK_REALTIME_ALARM:
    case CLOCK_TAI:
      out = read_calendar();
      return true;
    case CLOCK_MONOTONIC:
    case CLOCK_MONOTONIC_COARSE:
    case CLOCK_MONOTONIC_RAW:
    case CLOCK_BOOTTIME:
    case CLOCK_BOOTTIME_ALARM:
      spend_poll();
      out = run_page().monotonic_start + current_time();
      return true;
    default:
      return false;
  }
}

int set_calendar(std::int64_t calendar, const char *call) {
  if (calendar < 0 || calendar > kCalendarEnd)
    return report(-EINVAL);
  TraceLine line;
  trace_begin(line, call, {});
  if (line.text.capacity != 0) {
    append_text(line.text, " ");
    append_seconds(line.text, calendar);
  }
  trace_end(line, 0, 0);
  run_page().calendar_start.store(calendar - current_time());
  wake_timer_files();
  spend_call();
  return 0;
}

}  // namespace vboard

WRAP(int, clock_gettime, clockid_t clock, timespec *out) {
  std::int64_t now;
  // What a program has worked is no affair of the board's.
  if (clock == CLOCK_PROCESS_CPUTIME_ID || clock == CLOCK_THREAD_CPUTIME_ID || !on_board() ||
      !read_clock(clock, now))
    return REAL(clock_gettime)(clock, out);
  *out = timespec_of(now);
  return 0;
}

WRAP(int, gettimeofday, timeval *out, void *zone) {
  if (!on_board())
    return REAL(gettimeofday)(out, zone);
  if (zone != nullptr)
    *static_cast<struct timezone *>(zone) = {};
  if (out != nullptr) {
    const std::int64_t now = read_calendar();
    out->tv_sec = static_cast<time_t>(now / kSecond);
    out->tv_usec = static_cast<suseconds_t>(now % kSecond / 1000);
  }
  return 0;
}

WRAP(time_t, time, time_t *out) {
  if (!on_board())
    return REAL(time)(out);
  const time_t now = static_cast<time_t>(read_calendar() / kSecond);
  if (out != nullptr)
    *out = now;
  return now;
}

WRAP(int, timespec_get, timespec *out, int base) {
  if (!on_board() || base != TIME_UTC)
    return REAL(timespec_get)(out, base);
  *out = timespec_of(read_calendar());
  return base;
}

WRAP(int, clock_settime, clockid_t clock, const timespec *value) {
  if (!on_board())
    return REAL(clock_settime)(clock, value);
  if (clock != CLOCK_REALTIME || !is_valid_time(*value))
    return report(-EINVAL);
  return set_calendar(nanoseconds_of(*value), "clock_settime");
}

WRAP(int, settimeofday, const timeval *value, const struct timezone *zone) {
  if (!on_board())
    return REAL(settimeofday)(value, zone);
  if (value == nullptr)
    return 0;
  if (value->tv_usec < 0 || value->tv_usec >= 1'000'000)
    return report(-EINVAL);
  return set_calendar(saturated_nanoseconds(value->tv_sec, BoardTime{value->tv_usec} * 1000),
                      "settimeofday");
}

// Programs built for an older libc set the clock by this name.
WRAP(int, stime, const time_t *value) {
  if (!on_board())
    return REAL(stime)(value);
  return set_calendar(saturated_nanoseconds(*value, 0), "stime");
}

WRAP(int, adjtime, const timeval *delta, timeval *old) {
  if (!on_board())
    return REAL(adjtime)(delta, old);
  if (old != nullptr)
    *old = {};
  if (delta == nullptr)
    return 0;
  // The board's clock takes the whole step at once.
  BoardTime step = saturated_nanoseconds(delta->tv_sec, BoardTime{delta->tv_usec} * 1000);
  return set_calendar(calendar_after(current_calendar_time(), step), "adjtime");
}

namespace {

int adjust(timex *record, const char *call) {
  if (record->modes != 0) {
    trace_call(call, {}, 0, 0);
    spend_call();
  }
  const std::int64_t now = current_calendar_time();
  record->time = {static_cast<time_t>(now / kSecond),
                  static_cast<suseconds_t>(now % kSecond / 1000)};
  record->status = STA_UNSYNC;
  return TIME_ERROR;
}

}  // namespace

WRAP(int, adjtimex, timex *record) {
  return on_board() ? adjust(record, "adjtimex") : REAL(adjtimex)(record);
}

WRAP(int, ntp_adjtime, timex *record) {
  return on_board() ? adjust(record, "adjtimex") : REAL(ntp_adjtime)(record);
}

WRAP(int, clock_adjtime, clockid_t clock, timex *record) {
  return on_board() ? adjust(record, "clock_adjtime") : REAL(clock_adjtime)(clock, record);
}
