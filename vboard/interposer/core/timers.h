// The timers that the program has made: their clocks, and what they do when they go off. The times
// of those that send a signal in a jumping run are the schedule's.

#ifndef VBOARD_INTERPOSER_CORE_TIMERS_H
#define VBOARD_INTERPOSER_CORE_TIMERS_H
#include "vboard/interposer/models/model.h"

#include <signal.h>
#include <time.h>

#include <atomic>
#include <cstddef>

namespace vboard {

struct Timer {
  std::atomic<BoardTime> expiry{kNever};
  BoardTime interval;
};

struct PosixTimer {
  Timer timer;
  std::atomic<bool> used;
  timer_t id;
  clockid_t clock;
  sigevent event;
};

inline constexpr std::size_t kMostTimers = 32;

extern PosixTimer posix_timers[kMostTimers];

// Null for a timer of the kernel's.
PosixTimer *find_timer(timer_t id);
// A timer without a signal keeps its times itself. What is left until the next expiry; a running
// timer never shows zero.
BoardTime rest_of(const Timer &timer);
void set_timer(Timer &timer, BoardTime expiry, BoardTime interval);

// A child of a fork has no timers.
void forget_timers();

}  // namespace vboard

#endif
