// Wraps epoll_ctl epoll_wait epoll_pwait epoll_pwait2.

#include "vboard/interposer/wrap/epolls.h"

#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <limits.h>
#include <sys/epoll.h>

#include <algorithm>
#include <atomic>

using namespace vboard;

DECLARE_WRAPPED(int, epoll_wait, int, epoll_event *, int, int);

namespace {

// A device or an attribute of the board in an epoll set.
struct Member {
  bool used;
  int set, fd;
  epoll_event event;
};

constexpr std::size_t kMostMembers = 128;

Member members[kMostMembers];
std::atomic<int> member_count;  // read without the lock: usually none

Member *find_member(int set, int fd) {
  for (Member &one : members) {
    if (one.used && one.set == set && one.fd == fd)
      return &one;
  }
  return nullptr;
}

int change_member(int set, int operation, int fd, const epoll_event *event) {
  Member *member = find_member(set, fd);
  switch (operation) {
    case EPOLL_CTL_ADD:
      if (member != nullptr)
        return -EEXIST;
      for (Member &one : members) {
        if (one.used)
          continue;
        one = {true, set, fd, *event};
        ++member_count;
        return 0;
      }
      return -ENOSPC;
    case EPOLL_CTL_MOD:
      if (member == nullptr)
        return -ENOENT;
      member->event = *event;
      return 0;
    case EPOLL_CTL_DEL:
      if (member == nullptr)
        return -ENOENT;
      member->used = false;
      --member_count;
      return 0;
    default:
      return -EINVAL;
  }
}

// One wait on the kernel's set as a whole and on the board's members of it.
int wait_on_set(int set, epoll_event *events, int room, BoardTime limit, const sigset_t *mask) {
  if (room <= 0)
    return -EINVAL;
  Watch watches[kMostMembers];
  const Member *watched[kMostMembers];
  pollfd kernels = {set, POLLIN, 0};
  Wait wait;
  wait.fds = &kernels;
  wait.fd_count = 1;
  wait.watches = watches;
  lock_board();
  for (const Member &one : members) {
    Description *description = one.used && one.set == set ? acquire(one.fd) : nullptr;
    if (description == nullptr)
      continue;
    // The low bits of the two families of names are the same ones.
    watches[wait.watch_count] = {description, static_cast<short>(one.event.events & 0x7FFF), 0};
    watched[wait.watch_count++] = &one;
  }
  unlock_board();
  wait.deadline = limit == kNever ? kNever : deadline_after(limit);
  wait.mask = mask;
  wait.word = "poll";
  wait.asked = limit;
  const WaitEnd end = wait_on_board(wait);

  int count = 0;
  for (std::size_t i = 0; i < wait.watch_count; ++i) {
    if (end == WaitEnd::kReady && watches[i].revents != 0 && count < room) {
      events[count].events = static_cast<std::uint32_t>(watches[i].revents);
      events[count++].data = watched[i]->event.data;
    }
    release(watches[i].description);
  }
  if (end == WaitEnd::kInterrupted)
    return -EINTR;
  if (kernels.revents & POLLNVAL)
    return -EBADF;
  if (kernels.revents != 0 && count < room) {
    const int more = REAL(epoll_wait)(set, events + count, room - count, 0);
    count += std::max(more, 0);
  }
  return count;
}

bool is_kernels() {
  return !jumping() && member_count.load(std::memory_order_relaxed) == 0;
}

}  // namespace

namespace vboard {

void forget_epoll(int fd) {
  if (member_count.load(std::memory_order_relaxed) == 0)
    return;
  lock_board();
  for (Member &one : members) {
    if (one.used && (one.set == fd || one.fd == fd)) {
      one.used = false;
      --member_count;
    }
  }
  unlock_board();
}

}  // namespace vboard

WRAP(int, epoll_ctl, int set, int operation, int fd, epoll_event *event) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  const bool is_member = description != nullptr && (description->kind == Kind::kModel ||
                                                    description->kind == Kind::kAttribute);
  if (description != nullptr)
    release(description);
  if (!is_member)
    return REAL(epoll_ctl)(set, operation, fd, event);
  lock_board();
  const int result = change_member(set, operation, fd, event);
  unlock_board();
  return report(result);
}

DECLARE_WRAPPED(int, epoll_pwait, int, epoll_event *, int, int, const sigset_t *);

namespace {

int milliseconds_of(const timespec &time) {
  const BoardTime milliseconds = (nanoseconds_of(time) + 999'999) / 1'000'000;
  return milliseconds > INT_MAX ? INT_MAX : static_cast<int>(milliseconds);
}

}  // namespace

WRAP(int, epoll_pwait2, int set, epoll_event *events, int room, const timespec *limit,
     const sigset_t *mask) {
  if (!on_board())
    return REAL(epoll_pwait2)(set, events, room, limit, mask);
  const BoardTime duration = limit != nullptr ? nanoseconds_of(*limit) : kNever;
  if (!is_kernels())
    return report(wait_on_set(set, events, room, duration, mask));
  if (duration == kNever)
    trace_wait("poll", duration);
  timespec pc = pc_duration(duration);
  int result = REAL(epoll_pwait2)(set, events, room, limit != nullptr ? &pc : nullptr, mask);
  // Kernels before 5.11, and emulators, know the call in milliseconds alone.
  if (result < 0 && errno == ENOSYS)
    result =
        REAL(epoll_pwait)(set, events, room, limit != nullptr ? milliseconds_of(pc) : -1, mask);
  const int error = errno;
  if (duration != kNever)
    trace_wait("poll", duration);
  errno = error;
  return result;
}

WRAP(int, epoll_pwait, int set, epoll_event *events, int room, int milliseconds,
     const sigset_t *mask) {
  if (!on_board())
    return REAL(epoll_pwait)(set, events, room, milliseconds, mask);
  timespec limit = timespec_of(milliseconds < 0 ? 0 : BoardTime{milliseconds} * 1'000'000);
  return vboard_epoll_pwait2(set, events, room, milliseconds < 0 ? nullptr : &limit, mask);
}

WRAP(int, epoll_wait, int set, epoll_event *events, int room, int milliseconds) {
  if (!on_board())
    return REAL(epoll_wait)(set, events, room, milliseconds);
  return vboard_epoll_pwait(set, events, room, milliseconds, nullptr);
}
