#include "vboard/interposer/core/timers.h"

#include "vboard/interposer/core/engine.h"

#include <algorithm>

namespace vboard {

PosixTimer posix_timers[kMostTimers];

PosixTimer *find_timer(timer_t id) {
  for (PosixTimer &one : posix_timers) {
    if (one.used.load(std::memory_order_relaxed) && one.id == id)
      return &one;
  }
  return nullptr;
}

BoardTime rest_of(const Timer &timer) {
  const BoardTime expiry = timer.expiry.load(std::memory_order_relaxed);
  return expiry == kNever ? 0 : std::max<BoardTime>(expiry - current_time(), 1000);
}

void set_timer(Timer &timer, BoardTime expiry, BoardTime interval) {
  timer.interval = interval;
  timer.expiry.store(expiry, std::memory_order_relaxed);
}

void forget_timers() {
  for (PosixTimer &one : posix_timers)
    one.used.store(false, std::memory_order_relaxed);
}

}  // namespace vboard
