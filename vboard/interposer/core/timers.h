// The program's timers in a jumping run: board time is their clock.

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

// Changed under the engine's lock.
extern Timer alarm_timer;
extern PosixTimer posix_timers[kMostTimers];

// Null for a timer of the kernel's.
PosixTimer *find_timer(timer_t id);
// What is left until the next expiry; a running timer never shows zero.
BoardTime rest_of(const Timer &timer);
void set_timer(Timer &timer, BoardTime expiry, BoardTime interval);

// The earliest expiry, kNever for none. Takes no lock.
BoardTime next_timer();
// Raises the signals of timers that are due. Under the engine's lock.
void fire_timers(BoardTime now);
// A child of a fork has no timers.
void forget_timers();

}  // namespace vboard

#endif
