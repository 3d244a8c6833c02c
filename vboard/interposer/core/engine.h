// Board time: what it is, how it passes, and the one wait behind every blocking call.
//
// In a run at a fixed speed board time is the PC's clock times the speed, and a wait is the
// kernel's with its limit divided. In a jumping run board time stands still while anything runs: it
// moves when every thread of the process waits, to the earliest moment at which something happens
// (the end of a wait, a timer, a device that becomes ready, a planned signal, the watchdog). Each
// call that reaches the board also takes a microsecond, so that a program which polls without
// waiting gets on.

#ifndef VBOARD_INTERPOSER_CORE_ENGINE_H
#define VBOARD_INTERPOSER_CORE_ENGINE_H
#include "vboard/base/calendar.h"
#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/models/model.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <cstddef>
#include <cstdint>

namespace vboard {

inline constexpr BoardTime kCallCost = 1000;

BoardTime current_time();
// The board's calendar clock in nanoseconds since 1970, as clock_gettime(CLOCK_REALTIME) shows it.
std::int64_t current_calendar_time();

// The PC's clock (CLOCK_MONOTONIC), without a call of the kernel where libc needs none.
std::int64_t pc_time();

// Board time takes the cost of one call; timers that are due go off before this returns.
void spend_call();

// A modelled descriptor that is waited for. `events` and `revents` are poll()'s.
struct Watch {
  Description *description;
  short events, revents;
};

struct Wait {
  BoardTime deadline = kNever;
  // The kernel's own descriptors; their revents are filled.
  pollfd *fds = nullptr;
  std::size_t fd_count = 0;
  Watch *watches = nullptr;
  std::size_t watch_count = 0;
  const sigset_t *mask = nullptr;  // blocked while waiting; null: as it is
  // Jumping runs only: what wake_waiters() names, and what is released once the wait is registered.
  const void *key = nullptr;
  pthread_mutex_t *release = nullptr;
  // Ends the wait when true; asked under the engine's lock whenever something may have changed.
  bool (*done)(const void *key) = nullptr;
  // The trace's word for it ("sleep"), null for none, and the time that the program asked for.
  const char *word = nullptr;
  BoardTime asked = 0;
};

enum class WaitEnd : std::uint8_t { kTimeout, kReady, kWoken, kInterrupted };

WaitEnd wait_on_board(Wait &wait);

// Whether a read that a signal interrupted goes on by itself (SA_RESTART). Which signal it was is
// not known here: every handler of the program must ask for it.
bool handlers_restart();

// Writes the trace line of a wait that is left to the kernel.
void trace_wait(const char *word, BoardTime asked);

// Ends waits with this key, the longest waiting one first. Jumping runs only.
void wake_waiters(const void *key, bool all);

// The engine's own lock, taken with every signal blocked.
void lock_engine(sigset_t &saved);
void unlock_engine(const sigset_t &saved);

// Threads that jumping has to reckon with. One that begins is counted under the engine's lock,
// which its creator holds while it makes it.
void thread_begins(pthread_t thread);
void thread_ends(pthread_t thread);
// `key` is the pthread_t; fits Wait::done.
bool thread_has_ended(const void *key);
// In the child of a fork: one thread is left, with no waits.
void renew_engine();

// The moment when `deadline` is on the PC's clock from now on, as a duration; not negative.
timespec pc_duration(BoardTime duration);
BoardTime board_duration(const timespec &pc);

inline BoardTime nanoseconds_of(const timespec &time) {
  return saturated_nanoseconds(time.tv_sec, time.tv_nsec);
}
inline timespec timespec_of(BoardTime time) {
  return {static_cast<time_t>(time / kSecond), static_cast<long>(time % kSecond)};
}
// Now plus a duration, without overflow.
BoardTime deadline_after(BoardTime duration);
inline bool is_valid_time(const timespec &time) {
  return time.tv_sec >= 0 && time.tv_nsec >= 0 && time.tv_nsec < kSecond;
}

}  // namespace vboard

#endif
