#include "vboard/interposer/core/engine.h"

#include "vboard/base/calendar.h"
#include "vboard/base/kernel.h"
#include "vboard/interposer/core/jumping.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/core/wrap.h"

#include <alloca.h>
#include <errno.h>
#include <string.h>

#include <algorithm>
#include <atomic>

DECLARE_WRAPPED(int, ppoll, pollfd *, nfds_t, const timespec *, const sigset_t *);
DECLARE_WRAPPED(int, clock_gettime, clockid_t, timespec *);

namespace vboard {

namespace {

// How long a wait at a fixed speed goes without looking at the models again: another process may
// have made one ready.
constexpr BoardTime kLookAgain = 5'000'000;  // of the PC's time

}  // namespace

std::int64_t pc_time() {
  timespec now;
  REAL(clock_gettime)(CLOCK_MONOTONIC, &now);
  return nanoseconds_of(now);
}

BoardTime current_time() {
  RunPage &page = run_page();
  if (page.jumping)
    return page.jumped.load(std::memory_order_relaxed);
  return board_from_pc(page, pc_time() - page.monotonic_start);
}

std::int64_t current_calendar_time() {
  return calendar_after(run_page().calendar_start.load(std::memory_order_relaxed), current_time());
}

void spend_call() {
  if (jumping())
    spend_jumping();
}

bool handlers_restart() {
  for (int number = 1; number < NSIG; ++number) {
    struct sigaction action;
    if (sigaction(number, nullptr, &action) < 0 || action.sa_handler == SIG_DFL ||
        action.sa_handler == SIG_IGN)
      continue;
    if ((action.sa_flags & SA_RESTART) == 0)
      return false;
  }
  return true;
}

// Fills the watches' revents: true when one of them is ready. `earliest` is when the next one will
// be.
bool look_at_watches(Wait &wait, BoardTime now, BoardTime &earliest) {
  bool any = false;
  for (std::size_t i = 0; i < wait.watch_count; ++i) {
    Watch &watch = wait.watches[i];
    // The second name of an event is the same event.
    short asked = static_cast<short>(watch.events & (POLLIN | POLLOUT | POLLPRI));
    if (watch.events & POLLRDNORM)
      asked |= POLLIN;
    if (watch.events & POLLWRNORM)
      asked |= POLLOUT;
    const Readiness ready = readiness_of(*watch.description, asked, now);
    int events = ready.events;
    if (events & POLLIN)
      events |= POLLRDNORM;
    if (events & POLLOUT)
      events |= POLLWRNORM;
    watch.revents = static_cast<short>(events & (watch.events | POLLERR | POLLHUP));
    if (watch.revents == 0)
      earliest = std::min(earliest, ready.next);
    any = any || watch.revents != 0;
  }
  return any;
}

int poll_kernel(Wait &wait, int event_fd, const timespec *limit, const sigset_t *mask) {
  const std::size_t count = wait.fd_count;
  pollfd *fds = wait.fds;
  if (event_fd >= 0) {
    fds = static_cast<pollfd *>(alloca((count + 1) * sizeof(pollfd)));
    if (count > 0)
      memcpy(fds, wait.fds, count * sizeof(pollfd));
    fds[count] = {event_fd, POLLIN, 0};
  }
  int result = REAL(ppoll)(fds, event_fd >= 0 ? count + 1 : count, limit, mask);
  if (result < 0)
    return errno == EINTR ? -1 : 0;
  if (event_fd < 0)
    return result;
  for (std::size_t i = 0; i < count; ++i)
    wait.fds[i].revents = fds[i].revents;
  if (fds[count].revents != 0) {
    std::uint64_t rings;
    sys_read(event_fd, &rings, sizeof rings);
    --result;
  }
  return result;
}

void write_wait_line(Wait &wait) {
  if (wait.word != nullptr)
    trace_wait(wait.word, wait.asked);
  wait.word = nullptr;
}

namespace {

WaitEnd wait_at_speed(Wait &wait) {
  for (;;) {
    const BoardTime now = current_time();
    BoardTime until = wait.deadline;
    if (look_at_watches(wait, now, until)) {
      const timespec zero = {};
      if (wait.fd_count > 0)
        poll_kernel(wait, -1, &zero, wait.mask);
      return WaitEnd::kReady;
    }
    const BoardTime rest = until <= now ? 0 : until - now;
    timespec limit = pc_duration(rest);
    bool forever = until == kNever;
    if (wait.watch_count > 0 && (forever || nanoseconds_of(limit) > kLookAgain)) {
      limit = timespec_of(kLookAgain);
      forever = false;
    }
    const int polled = poll_kernel(wait, -1, forever ? nullptr : &limit, wait.mask);
    if (polled != 0)
      return polled < 0 ? WaitEnd::kInterrupted : WaitEnd::kReady;
    if (wait.deadline <= current_time()) {
      // What became ready at the last moment counts.
      return look_at_watches(wait, current_time(), until) ? WaitEnd::kReady : WaitEnd::kTimeout;
    }
  }
}

}  // namespace

WaitEnd wait_on_board(Wait &wait) {
  if (wait.what == nullptr)
    wait.what = wait.word;
  if (wait.asked == kNever)
    write_wait_line(wait);
  const WaitEnd end = jumping() ? wait_jumping(wait) : wait_at_speed(wait);
  write_wait_line(wait);
  return end;
}

void trace_wait(const char *word, BoardTime asked) {
  if (!tracing())
    return;
  TraceLine line;
  trace_begin(line, word, {});
  append_text(line.text, " ");
  if (asked == kNever)
    append_text(line.text, "forever");
  else
    append_seconds(line.text, asked);
  trace_end(line);
}

timespec pc_duration(BoardTime duration) {
  if (duration <= 0)
    return {0, 0};
  return timespec_of(pc_from_board(run_page(), duration));
}

BoardTime board_duration(const timespec &pc) {
  return board_from_pc(run_page(), nanoseconds_of(pc));
}

BoardTime deadline_after(BoardTime duration) {
  const BoardTime now = current_time();
  return duration >= kNever - now ? kNever : now + duration;
}

}  // namespace vboard
