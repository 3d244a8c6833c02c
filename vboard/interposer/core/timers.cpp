#include "vboard/interposer/core/timers.h"

#include "vboard/interposer/core/engine.h"

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

namespace vboard {

Timer alarm_timer;
PosixTimer posix_timers[kMostTimers];

namespace {

// Moves a due timer to its next expiry, or stops it.
void renew(Timer &timer, BoardTime now) {
  BoardTime expiry = timer.expiry.load(std::memory_order_relaxed);
  // Expiries that have been jumped over are one signal, as a pending signal is one.
  if (timer.interval > 0)
    expiry += (1 + (now - expiry) / timer.interval) * timer.interval;
  else
    expiry = kNever;
  timer.expiry.store(expiry, std::memory_order_relaxed);
}

void raise_for(const PosixTimer &timer) {
  const sigevent &event = timer.event;
  if (event.sigev_notify == SIGEV_SIGNAL || event.sigev_notify == SIGEV_THREAD_ID) {
    siginfo_t info = {};
    info.si_signo = event.sigev_signo;
    info.si_code = SI_TIMER;
    info.si_pid = getpid();
    info.si_uid = getuid();
    info.si_value = event.sigev_value;
    if (event.sigev_notify == SIGEV_SIGNAL)
      syscall(SYS_rt_sigqueueinfo, getpid(), event.sigev_signo, &info);
    else
      syscall(SYS_rt_tgsigqueueinfo, getpid(), event._sigev_un._tid, event.sigev_signo, &info);
  }
}

}  // namespace

PosixTimer *find_timer(timer_t id) {
  for (PosixTimer &one : posix_timers) {
    if (one.used.load(std::memory_order_relaxed) && one.id == id)
      return &one;
  }
  return nullptr;
}

// What is left until the next expiry; a running timer never shows zero.
BoardTime rest_of(const Timer &timer) {
  const BoardTime expiry = timer.expiry.load(std::memory_order_relaxed);
  return expiry == kNever ? 0 : std::max<BoardTime>(expiry - current_time(), 1000);
}

void set_timer(Timer &timer, BoardTime expiry, BoardTime interval) {
  timer.interval = interval;
  timer.expiry.store(expiry, std::memory_order_relaxed);
}

BoardTime next_timer() {
  BoardTime next = alarm_timer.expiry.load(std::memory_order_relaxed);
  for (const PosixTimer &one : posix_timers) {
    if (one.used.load(std::memory_order_relaxed))
      next = std::min(next, one.timer.expiry.load(std::memory_order_relaxed));
  }
  return next;
}

void fire_timers(BoardTime now) {
  if (alarm_timer.expiry.load(std::memory_order_relaxed) <= now) {
    renew(alarm_timer, now);
    syscall(SYS_kill, getpid(), SIGALRM);
  }
  for (PosixTimer &one : posix_timers) {
    if (one.used.load(std::memory_order_relaxed) &&
        one.timer.expiry.load(std::memory_order_relaxed) <= now) {
      renew(one.timer, now);
      raise_for(one);
    }
  }
}

void forget_timers() {
  set_timer(alarm_timer, kNever, 0);
  for (PosixTimer &one : posix_timers)
    one.used.store(false, std::memory_order_relaxed);
}

}  // namespace vboard
