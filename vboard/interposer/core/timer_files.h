// Timers that are descriptors (timerfd), in board time at every speed. They go through dup(),
// fork() and exec() as a device's descriptor does.

#ifndef VBOARD_INTERPOSER_CORE_TIMER_FILES_H
#define VBOARD_INTERPOSER_CORE_TIMER_FILES_H
#include "vboard/interposer/core/descriptors.h"

#include <time.h>

namespace vboard {

// What every such descriptor is called in traces.
inline constexpr char kTimerFile[] = "timer";
extern const Model kTimerModel;

// A stopped timer of a clock that the caller has checked; `flags` are those of open(). The
// descriptor, or a negated errno.
int open_timer(clockid_t clock, int flags);

// What timerfd_settime() sets. `first` is a time of the timer's clock when it is absolute,
// otherwise from now on, and 0 stops the timer.
struct TimerSetting {
  BoardTime first, interval;
  bool is_absolute;
  bool ends_with_calendar;  // reading fails with ECANCELED when the calendar has been set
};
void set_timer_file(Description &timer, const TimerSetting &setting);
// What is left until the next expiry, 0 for a stopped timer, and the interval.
void get_timer_file(Description &timer, BoardTime &rest, BoardTime &interval);
// Lets everybody who waits for a timer look at it again: it, or the calendar, has been set.
void wake_timer_files();

}  // namespace vboard

#endif
