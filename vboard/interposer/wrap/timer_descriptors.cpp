// Wraps timerfd_create timerfd_settime timerfd_gettime.

#include "vboard/base/text.h"
#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/timer_files.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/timerfd.h>
#include <time.h>

using namespace vboard;

static_assert(TFD_NONBLOCK == O_NONBLOCK && TFD_CLOEXEC == O_CLOEXEC);

namespace {

struct ClockName {
  clockid_t clock;
  const char *name;  // in traces
};

constexpr ClockName kClocks[] = {
    {CLOCK_REALTIME, "REALTIME"},
    {CLOCK_MONOTONIC, "MONOTONIC"},
    {CLOCK_BOOTTIME, "BOOTTIME"},
    {CLOCK_REALTIME_ALARM, "REALTIME_ALARM"},
    {CLOCK_BOOTTIME_ALARM, "BOOTTIME_ALARM"},
};

const char *find_clock(clockid_t clock) {
  for (const ClockName &one : kClocks) {
    if (one.clock == clock)
      return one.name;
  }
  return nullptr;
}

// The timer of a descriptor, held until release(). Null for the PC's descriptors; -EINVAL in
// `error` for another one of the board's.
Description *acquire_timer(int fd, int &error) {
  error = 0;
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr || description->file.model == &kTimerModel)
    return description;
  release(description);
  error = -EINVAL;
  return nullptr;
}

itimerspec times_of(Description &timer) {
  BoardTime rest;
  BoardTime interval;
  get_timer_file(timer, rest, interval);
  return {timespec_of(interval), timespec_of(rest)};
}

void trace_setting(const TimerSetting &setting) {
  if (!tracing())
    return;
  TraceLine line;
  trace_begin(line, "timerfd_settime", kTimerFile);
  if (setting.is_absolute)
    trace_word(line, "ABSTIME");
  append_text(line.text, " ");
  append_seconds(line.text, setting.first);
  if (setting.interval != 0) {
    append_text(line.text, " ");
    append_seconds(line.text, setting.interval);
  }
  trace_end(line, 0, 0);
}

}  // namespace

WRAP(int, timerfd_create, int clock, int flags) {
  if (!on_board())
    return REAL(timerfd_create)(clock, flags);
  const char *name = find_clock(clock);
  if (name == nullptr || (flags & ~(TFD_NONBLOCK | TFD_CLOEXEC)) != 0)
    return report(-EINVAL);
  const int result = open_timer(clock, flags);
  if (tracing()) {
    TraceLine line;
    trace_begin(line, "timerfd_create", kTimerFile);
    trace_word(line, name);
    trace_end(line, result, -result);
  }
  spend_call();
  return report(result);
}

WRAP(int, timerfd_settime, int fd, int flags, const itimerspec *value, itimerspec *old) {
  int error;
  Description *timer = acquire_timer(fd, error);
  if (timer == nullptr)
    return error < 0 ? report(error) : REAL(timerfd_settime)(fd, flags, value, old);
  if ((flags & ~(TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET)) != 0 ||
      !is_valid_time(value->it_value) || !is_valid_time(value->it_interval)) {
    release(timer);
    return report(-EINVAL);
  }
  const TimerSetting setting = {
      .first = nanoseconds_of(value->it_value),
      .interval = nanoseconds_of(value->it_interval),
      .is_absolute = (flags & TFD_TIMER_ABSTIME) != 0,
      .ends_with_calendar = (flags & TFD_TIMER_CANCEL_ON_SET) != 0,
  };
  if (old != nullptr)
    *old = times_of(*timer);
  set_timer_file(*timer, setting);
  wake_timer_files();
  release(timer);
  trace_setting(setting);
  spend_call();
  return 0;
}

WRAP(int, timerfd_gettime, int fd, itimerspec *value) {
  int error;
  Description *timer = acquire_timer(fd, error);
  if (timer == nullptr)
    return error < 0 ? report(error) : REAL(timerfd_gettime)(fd, value);
  *value = times_of(*timer);
  release(timer);
  spend_call();
  return 0;
}
