#include "vboard/interposer/core/kernel_waits.h"

#include "vboard/base/kernel.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/jumping.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

DECLARE_WRAPPED(int, ppoll, pollfd *, nfds_t, const timespec *, const sigset_t *);

namespace vboard {

namespace {

bool is_ready(int fd, short events) {
  pollfd poll_fd = {fd, events, 0};
  const timespec zero = {};
  const int kept = errno;
  const bool ready = REAL(ppoll)(&poll_fd, 1, &zero, nullptr) > 0;
  errno = kept;
  return ready;
}

}  // namespace

int await_kernel(int fd, short events, const char *what) {
  if (!jumping() || is_ready(fd, events))
    return 0;
  const int flags = sys_flags(fd);
  if (flags < 0 || (flags & O_NONBLOCK))
    return 0;
  for (;;) {
    pollfd poll_fd = {fd, events, 0};
    Wait wait;
    wait.fds = &poll_fd;
    wait.fd_count = 1;
    wait.what = what;
    if (wait_on_board(wait) != WaitEnd::kInterrupted)
      return 0;
    if (!handlers_restart())
      return -EINTR;
  }
}

bool goes_in_pieces(int fd, std::size_t size) {
  if (!jumping() || size <= kPipePiece)
    return false;
  FileStatus status;
  const int flags = sys_flags(fd);
  return flags >= 0 && (flags & O_NONBLOCK) == 0 && sys_fstat(fd, status) == 0 &&
         S_ISFIFO(status.mode) && !is_given(status);
}

int await_true(bool (*try_once)(const void *), const void *context, const char *what) {
  for (;;) {
    Wait wait;
    wait.key = context;
    wait.done = try_once;
    wait.what = what;
    if (wait_on_board(wait) == WaitEnd::kWoken || try_once(context))
      return 0;
    if (!handlers_restart())
      return -EINTR;
  }
}

bool leads_outside(int fd) {
  FileStatus status;
  return sys_fstat(fd, status) == 0 &&
         (S_ISCHR(status.mode) ||
          ((S_ISFIFO(status.mode) || S_ISSOCK(status.mode)) && is_given(status)));
}

HaltedTime::HaltedTime(bool halts_) : halts(halts_ && has_seat()) {
  if (halts)
    own_seat->halts = 1;
}

HaltedTime::~HaltedTime() {
  if (halts)
    own_seat->halts = 0;
}

}  // namespace vboard
