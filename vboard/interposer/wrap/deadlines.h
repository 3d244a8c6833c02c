// Absolute times of the program: each counts by the clock that its call names, and is turned into
// board time, or into the same moment on the PC's clocks for a wait that is left to the kernel.

#ifndef VBOARD_INTERPOSER_WRAP_DEADLINES_H
#define VBOARD_INTERPOSER_WRAP_DEADLINES_H
#include "vboard/interposer/core/engine.h"

#include <pthread.h>
#include <time.h>

namespace vboard {

// Whether the clock shows the calendar, which jumps when it is set. The others count from the
// machine's start.
bool is_calendar(clockid_t clock);
// The board's clock of that name, now, in nanoseconds.
std::int64_t clock_now(clockid_t clock);

BoardTime board_moment(clockid_t clock, const timespec &absolute);
// The same moment on the PC's CLOCK_MONOTONIC, and on its CLOCK_REALTIME.
timespec pc_moment(BoardTime moment);
timespec pc_calendar_moment(BoardTime moment);

// The clock that a condition was made with.
clockid_t clock_of(const pthread_cond_t &condition);

// What most calls of libc refuse in an absolute time. A time before 1970 has only passed.
inline bool is_bad_fraction(const timespec &time) {
  return time.tv_nsec < 0 || time.tv_nsec >= kSecond;
}

}  // namespace vboard

#endif
