// Board time: what it is, how it passes, and the one wait behind every blocking call.
//
// In a run at a fixed speed board time is the PC's clock times the speed, and a wait is the
// kernel's with its limit divided. In a jumping run board time stands still while anything runs: it
// moves when every thread of every process waits, to the earliest moment at which something happens
// (the end of a wait, a timer, a device that becomes ready, a planned signal, the watchdog). Each
// call that reaches the board also takes a microsecond, and more when many follow each other, so
// that a program which polls without waiting gets on.

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
  // What it is, for a person: "poll" for instance; null for a read, or for a signal alone.
  const char *what = nullptr;
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

// Fills the watches' revents: true when one of them is ready. `earliest` becomes the moment of the
// next one when that comes before it.
bool look_at_watches(Wait &wait, BoardTime now, BoardTime &earliest);
// Polls the kernel's descriptors of a wait and the thread's own bell. The number of ready ones
// without the bell, or -1 when a signal came in.
int poll_kernel(Wait &wait, int event_fd, const timespec *limit, const sigset_t *mask);
// Writes the line of a wait that asks for one, once.
void write_wait_line(Wait &wait);

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
