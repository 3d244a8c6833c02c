// Wraps sigwait sigwaitinfo sigtimedwait.

#include "vboard/base/kernel.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

using namespace vboard;

DECLARE_WRAPPED(int, sigtimedwait, const sigset_t *, siginfo_t *, const timespec *);

namespace {

// Waits until one of the signals is pending: a descriptor for them becomes readable. It takes none.
WaitEnd wait_for_pending(const sigset_t *set, BoardTime deadline) {
  int fd = static_cast<int>(syscall(SYS_signalfd4, -1, set, _NSIG / 8, SFD_CLOEXEC | SFD_NONBLOCK));
  if (fd < 0)
    return WaitEnd::kInterrupted;
  fd = sys_move_high(fd, kOwnDescriptors);
  pollfd pending = {fd, POLLIN, 0};
  Wait wait;
  wait.fds = &pending;
  wait.fd_count = 1;
  wait.deadline = deadline;
  const WaitEnd end = wait_on_board(wait);
  sys_close(fd);
  return end;
}

// The signal's number, or a negated errno.
int wait_for(const sigset_t *set, siginfo_t *info, BoardTime limit) {
  const BoardTime deadline = limit == kNever ? kNever : deadline_after(limit);
  if (!jumping()) {
    timespec pc = pc_duration(limit == kNever ? 0 : limit);
    const int number = REAL(sigtimedwait)(set, info, limit == kNever ? nullptr : &pc);
    return number < 0 ? -errno : number;
  }
  for (;;) {
    const WaitEnd end = wait_for_pending(set, deadline);
    const timespec zero = {};
    const int number = REAL(sigtimedwait)(set, info, &zero);
    if (number > 0)
      return number;
    if (end == WaitEnd::kInterrupted)
      return -EINTR;
    // Another thread may have taken it.
    if (end == WaitEnd::kTimeout)
      return -EAGAIN;
  }
}

}  // namespace

WRAP(int, sigtimedwait, const sigset_t *set, siginfo_t *info, const timespec *limit) {
  if (!on_board())
    return REAL(sigtimedwait)(set, info, limit);
  if (limit != nullptr && !is_valid_time(*limit))
    return report(-EINVAL);
  return report(wait_for(set, info, limit != nullptr ? nanoseconds_of(*limit) : kNever));
}

WRAP(int, sigwaitinfo, const sigset_t *set, siginfo_t *info) {
  if (!on_board())
    return REAL(sigwaitinfo)(set, info);
  return report(wait_for(set, info, kNever));
}

// Answers with the errno itself, and is not interrupted.
WRAP(int, sigwait, const sigset_t *set, int *number) {
  if (!on_board())
    return REAL(sigwait)(set, number);
  int result;
  do {
    result = wait_for(set, nullptr, kNever);
  } while (result == -EINTR);
  if (result < 0)
    return -result;
  *number = result;
  return 0;
}
