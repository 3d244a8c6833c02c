// Wraps select pselect poll ppoll __poll_chk __ppoll_chk.

#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/jumping.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/core/wrap.h"

#include <alloca.h>
#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/select.h>
#include <sys/time.h>
#include <time.h>

using namespace vboard;

DECLARE_WRAPPED(int, ppoll, pollfd *, nfds_t, const timespec *, const sigset_t *);

namespace {

// Splits a poll list into the kernel's descriptors and the board's, waits, and puts the answers
// back. The number of ready entries, or a negated errno.
int poll_on_board(pollfd *fds, std::size_t count, BoardTime limit, const sigset_t *mask,
                  const char *word) {
  pollfd *kernels = static_cast<pollfd *>(alloca((count + 1) * sizeof(pollfd)));
  Watch *watches = static_cast<Watch *>(alloca((count + 1) * sizeof(Watch)));
  const short **answers = static_cast<const short **>(alloca((count + 1) * sizeof(short *)));
  Wait wait;
  wait.fds = kernels;
  wait.watches = watches;
  for (std::size_t i = 0; i < count; ++i) {
    Description *description = fds[i].fd >= 0 ? acquire(fds[i].fd) : nullptr;
    if (description != nullptr && is_watched(*description, fds[i].events)) {
      watches[wait.watch_count] = {description, fds[i].events, 0};
      answers[i] = &watches[wait.watch_count++].revents;
      continue;
    }
    if (description != nullptr)
      release(description);
    kernels[wait.fd_count] = {fds[i].fd, fds[i].events, 0};
    answers[i] = &kernels[wait.fd_count++].revents;
  }
  wait.deadline = limit == kNever ? kNever : deadline_after(limit);
  wait.mask = mask;
  wait.word = word;
  wait.asked = limit;
  if (limit == 0)
    spend_poll();
  const WaitEnd end = wait_on_board(wait);

  int ready = 0;
  for (std::size_t i = 0; i < count; ++i) {
    fds[i].revents = *answers[i];
    if (fds[i].revents != 0)
      ++ready;
  }
  for (std::size_t i = 0; i < wait.watch_count; ++i)
    release(watches[i].description);
  if (end == WaitEnd::kInterrupted)
    return -EINTR;
  return end == WaitEnd::kReady ? ready : 0;
}

bool has_board_descriptor(const pollfd *fds, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (is_board_descriptor(fds[i].fd))
      return true;
  }
  return false;
}

// At a fixed speed and without devices of the board the kernel does it all.
bool is_kernels(const pollfd *fds, std::size_t count) {
  return !jumping() && !has_board_descriptor(fds, count);
}

int poll_kernels(pollfd *fds, std::size_t count, BoardTime limit, const sigset_t *mask,
                 const char *word) {
  if (limit == kNever)
    trace_wait(word, limit);
  timespec pc = pc_duration(limit);
  const int result = REAL(ppoll)(fds, count, limit == kNever ? nullptr : &pc, mask);
  const int error = errno;
  if (limit != kNever)
    trace_wait(word, limit);
  errno = error;
  return result;
}

int poll_any(pollfd *fds, std::size_t count, BoardTime limit, const sigset_t *mask,
             const char *word) {
  if (is_kernels(fds, count))
    return poll_kernels(fds, count, limit, mask, word);
  return report(poll_on_board(fds, count, limit, mask, word));
}

}  // namespace

WRAP(int, ppoll, pollfd *fds, nfds_t count, const timespec *limit, const sigset_t *mask) {
  if (!on_board())
    return REAL(ppoll)(fds, count, limit, mask);
  if (limit != nullptr && !is_valid_time(*limit))
    return report(-EINVAL);
  return poll_any(fds, count, limit != nullptr ? nanoseconds_of(*limit) : kNever, mask, "poll");
}

WRAP(int, poll, pollfd *fds, nfds_t count, int milliseconds) {
  if (!on_board())
    return REAL(poll)(fds, count, milliseconds);
  const BoardTime limit = milliseconds < 0 ? kNever : BoardTime{milliseconds} * 1'000'000;
  return poll_any(fds, count, limit, nullptr, "poll");
}

WRAP(int, __poll_chk, pollfd *fds, nfds_t count, int milliseconds, std::size_t room) {
  if (room / sizeof(pollfd) < count)
    return REAL(__poll_chk)(fds, count, milliseconds, room);
  return vboard_poll(fds, count, milliseconds);
}

WRAP(int, __ppoll_chk, pollfd *fds, nfds_t count, const timespec *limit, const sigset_t *mask,
     std::size_t room) {
  if (room / sizeof(pollfd) < count)
    return REAL(__ppoll_chk)(fds, count, limit, mask, room);
  return vboard_ppoll(fds, count, limit, mask);
}

namespace {

// select() by way of poll(): one entry for each descriptor that stands in any of the sets.
int select_any(int count, fd_set *reads, fd_set *writes, fd_set *excepts, BoardTime limit,
               const sigset_t *mask) {
  if (count < 0)
    return report(-EINVAL);
  if (count > FD_SETSIZE)
    count = FD_SETSIZE;
  pollfd fds[FD_SETSIZE];
  std::size_t used = 0;
  for (int fd = 0; fd < count; ++fd) {
    int events = 0;
    if (reads != nullptr && FD_ISSET(fd, reads))
      events |= POLLIN;
    if (writes != nullptr && FD_ISSET(fd, writes))
      events |= POLLOUT;
    if (excepts != nullptr && FD_ISSET(fd, excepts))
      events |= POLLPRI;
    if (events != 0)
      fds[used++] = {fd, static_cast<short>(events), 0};
  }
  const int result = poll_any(fds, used, limit, mask, "select");
  if (result < 0)
    return result;
  for (std::size_t i = 0; i < used; ++i) {
    if (fds[i].revents & POLLNVAL)
      return report(-EBADF);
  }

  // The sets shrink to what is ready; the answer counts each descriptor once a set.
  auto clear = [count](fd_set *set) {
    for (int fd = 0; set != nullptr && fd < count; ++fd)
      FD_CLR(fd, set);
  };
  clear(reads);
  clear(writes);
  clear(excepts);
  int ready = 0;
  auto mark = [&ready](fd_set *set, const pollfd &one, short wanted, int answers) {
    if ((one.events & wanted) && (one.revents & answers)) {
      FD_SET(one.fd, set);
      ++ready;
    }
  };
  for (std::size_t i = 0; i < used && result > 0; ++i) {
    mark(reads, fds[i], POLLIN, POLLIN | POLLHUP | POLLERR);
    mark(writes, fds[i], POLLOUT, POLLOUT | POLLERR);
    mark(excepts, fds[i], POLLPRI, POLLPRI);
  }
  return ready;
}

}  // namespace

WRAP(int, select, int count, fd_set *reads, fd_set *writes, fd_set *excepts, timeval *limit) {
  if (!on_board())
    return REAL(select)(count, reads, writes, excepts, limit);
  BoardTime duration = kNever;
  if (limit != nullptr) {
    if (limit->tv_sec < 0 || limit->tv_usec < 0)
      return report(-EINVAL);
    duration = saturated_nanoseconds(saturated_sum(limit->tv_sec, limit->tv_usec / 1'000'000),
                                     BoardTime{limit->tv_usec} % 1'000'000 * 1000);
  }
  const BoardTime deadline = duration == kNever ? kNever : deadline_after(duration);
  const int result = select_any(count, reads, writes, excepts, duration, nullptr);
  if (limit != nullptr) {
    // Linux leaves in the record what was left of the time.
    const int error = errno;
    const BoardTime now = current_time();
    const BoardTime rest = deadline > now ? deadline - now : 0;
    limit->tv_sec = static_cast<time_t>(rest / kSecond);
    limit->tv_usec = static_cast<suseconds_t>(rest % kSecond / 1000);
    errno = error;
  }
  return result;
}

WRAP(int, pselect, int count, fd_set *reads, fd_set *writes, fd_set *excepts, const timespec *limit,
     const sigset_t *mask) {
  if (!on_board())
    return REAL(pselect)(count, reads, writes, excepts, limit, mask);
  if (limit != nullptr && !is_valid_time(*limit))
    return report(-EINVAL);
  return select_any(count, reads, writes, excepts,
                    limit != nullptr ? nanoseconds_of(*limit) : kNever, mask);
}
