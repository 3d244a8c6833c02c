// Wraps sleep usleep nanosleep clock_nanosleep thrd_sleep pause sigsuspend.

#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/core/wrap.h"
#include "vboard/interposer/wrap/deadlines.h"

#include <errno.h>
#include <signal.h>
#include <threads.h>
#include <time.h>
#include <unistd.h>

using namespace vboard;

DECLARE_WRAPPED(int, clock_nanosleep, clockid_t, int, const timespec *, timespec *);

namespace {

// Sleeps; `rest` is what was left when a signal came in. 0 or -EINTR.
int sleep_for(BoardTime duration, BoardTime &rest) {
  const BoardTime deadline = deadline_after(duration);
  rest = 0;
  bool interrupted;
  if (jumping()) {
    Wait wait;
    wait.deadline = deadline;
    wait.word = "sleep";
    wait.asked = duration;
    interrupted = wait_on_board(wait) == WaitEnd::kInterrupted;
  } else {
    // The kernel's own sleep: after a stop and a continuation it goes on by itself.
    const timespec pc = pc_duration(duration);
    interrupted = REAL(clock_nanosleep)(CLOCK_MONOTONIC, 0, &pc, nullptr) == EINTR;
    trace_wait("sleep", duration);
  }
  if (!interrupted)
    return 0;
  const BoardTime now = current_time();
  rest = deadline > now ? deadline - now : 0;
  return -EINTR;
}

}  // namespace

WRAP(int, nanosleep, const timespec *request, timespec *remaining) {
  if (!on_board())
    return REAL(nanosleep)(request, remaining);
  if (request == nullptr)
    return report(-EFAULT);
  if (!is_valid_time(*request))
    return report(-EINVAL);
  BoardTime rest;
  // The two may be one record: the request has been read by now.
  const int result = sleep_for(nanoseconds_of(*request), rest);
  if (result < 0 && remaining != nullptr)
    *remaining = timespec_of(rest);
  return report(result);
}

// Answers with the errno itself.
WRAP(int, clock_nanosleep, clockid_t clock, int flags, const timespec *request,
     timespec *remaining) {
  if (!on_board() || clock == CLOCK_PROCESS_CPUTIME_ID)
    return REAL(clock_nanosleep)(clock, flags, request, remaining);
  if (!is_valid_time(*request))
    return EINVAL;
  BoardTime duration = nanoseconds_of(*request);
  const bool absolute = (flags & TIMER_ABSTIME) != 0;
  if (absolute) {
    duration = saturated_sum(duration, -clock_now(clock));
    if (duration < 0)
      duration = 0;
  }
  BoardTime rest;
  const int result = sleep_for(duration, rest);
  if (result < 0 && remaining != nullptr && !absolute)
    *remaining = timespec_of(rest);
  return -result;
}

WRAP(unsigned int, sleep, unsigned int seconds) {
  if (!on_board())
    return REAL(sleep)(seconds);
  BoardTime rest;
  sleep_for(BoardTime{seconds} * kSecond, rest);
  return static_cast<unsigned int>(rest / kSecond);
}

WRAP(int, usleep, useconds_t microseconds) {
  if (!on_board())
    return REAL(usleep)(microseconds);
  BoardTime rest;
  return report(sleep_for(BoardTime{microseconds} * 1000, rest));
}

WRAP(int, thrd_sleep, const timespec *request, timespec *remaining) {
  if (!on_board())
    return REAL(thrd_sleep)(request, remaining);
  const int result = vboard_clock_nanosleep(CLOCK_REALTIME, 0, request, remaining);
  return result == 0 ? 0 : result == EINTR ? -1 : -2;
}

namespace {

// Waits for a signal; returns when a handler has run.
int wait_for_signal(const sigset_t *mask) {
  Wait wait;
  wait.mask = mask;
  while (wait_on_board(wait) != WaitEnd::kInterrupted) {
  }
  errno = EINTR;
  return -1;
}

}  // namespace

WRAP(int, pause, void) {
  if (!on_board() || !jumping())
    return REAL(pause)();
  return wait_for_signal(nullptr);
}

WRAP(int, sigsuspend, const sigset_t *mask) {
  if (!on_board() || !jumping())
    return REAL(sigsuspend)(mask);
  return wait_for_signal(mask);
}
