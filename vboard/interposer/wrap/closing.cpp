// Wraps close dup dup2 dup3 fcntl fcntl64 close_range closefrom.

#include "vboard/base/kernel.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/kernel_waits.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/transfers.h"
#include "vboard/interposer/core/wrap.h"
#include "vboard/interposer/wrap/epolls.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace vboard;

DECLARE_WRAPPED(int, fcntl64, int, int, ...);

WRAP(int, close, int fd) {
  if (!on_board())
    return REAL(close)(fd);
  if (is_own_descriptor(fd))
    return report(-EBADF);
  forget_epoll(fd);
  Description *description = acquire(fd);
  if (description == nullptr)
    return REAL(close)(fd);
  const int result = close_on_board(*description);
  release(description);
  // As with the kernel, the descriptor is gone even when close() tells of an error.
  detach(fd);
  const int closed = REAL(close)(fd);
  return result != 0 ? report(result) : closed;
}

WRAP(int, dup, int fd) {
  const int copy = REAL(dup)(fd);
  if (copy >= 0 && on_board())
    attach_duplicate(fd, copy);
  return copy;
}

WRAP(int, dup3, int from, int to, int flags) {
  if (on_board() && is_own_descriptor(to))
    return report(-EBADF);
  const bool replaces = on_board() && from != to && sys_flags(from) >= 0;
  // The device behind `to` is closed while its descriptor is still there.
  if (replaces)
    detach(to);
  const int copy = REAL(dup3)(from, to, flags);
  if (copy >= 0 && replaces)
    attach_duplicate(from, to);
  return copy;
}

WRAP(int, dup2, int from, int to) {
  if (on_board() && is_own_descriptor(to))
    return report(-EBADF);
  const bool replaces = on_board() && from != to && sys_flags(from) >= 0;
  if (replaces)
    detach(to);
  const int copy = REAL(dup2)(from, to);
  if (copy >= 0 && replaces)
    attach_duplicate(from, to);
  return copy;
}

namespace {

// The command that tries what another one waits for; 0 for those that wait for nothing.
int trying(int command) {
  switch (command) {
    case F_SETLKW:
      return F_SETLK;
    case F_OFD_SETLKW:
      return F_OFD_SETLK;
#if F_SETLKW64 != F_SETLKW
    case F_SETLKW64:
      return F_SETLK64;
#endif
    default:
      return 0;
  }
}

struct RangeWait {
  int fd;
  int command;
  void *lock;
  int result;
  int error;
};

bool took_range(const void *context) {
  RangeWait &wait = *static_cast<RangeWait *>(const_cast<void *>(context));
  wait.result = REAL(fcntl64)(wait.fd, wait.command, wait.lock);
  wait.error = errno;
  return wait.result == 0 || (errno != EACCES && errno != EAGAIN);
}

// A call on a descriptor of the kernel's. Waiting for a lock is a wait like any other.
int fcntl_of_kernel(int fd, int command, void *argument) {
  const int tries = jumping() ? trying(command) : 0;
  if (tries == 0)
    return REAL(fcntl64)(fd, command, argument);
  RangeWait wait = {fd, tries, argument, 0, 0};
  if (!took_range(&wait) && await_true(took_range, &wait, "a lock on a file") < 0)
    return report(-EINTR);
  errno = wait.error;
  return wait.result;
}

}  // namespace

WRAP(int, fcntl64, int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void *argument = va_arg(arguments, void *);
  va_end(arguments);
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr || description->kind == Kind::kKernelSocket) {
    if (description != nullptr)
      release(description);
    return on_board() ? fcntl_of_kernel(fd, command, argument)
                      : REAL(fcntl64)(fd, command, argument);
  }

  int result;
  OpenFile &file = description->file;
  constexpr int changeable = O_APPEND | O_NONBLOCK | O_ASYNC | O_DIRECT | O_NOATIME;
  switch (command) {
    case F_GETFL:
      result = file.flags & ~(O_CREAT | O_EXCL | O_TRUNC | O_NOCTTY | O_CLOEXEC);
      break;
    case F_SETFL: {
      const int flags = static_cast<int>(reinterpret_cast<std::intptr_t>(argument));
      set_flags(*description, (file.flags & ~changeable) | (flags & changeable));
      result = 0;
      if (description->kind != Kind::kModel)
        result = REAL(fcntl64)(fd, command, argument);
      break;
    }
    default:
      result = REAL(fcntl64)(fd, command, argument);
      if (result >= 0 && (command == F_DUPFD || command == F_DUPFD_CLOEXEC))
        attach_duplicate(fd, result);
  }
  release(description);
  return result;
}

#if __SIZEOF_POINTER__ == 8
WRAP_ALIAS(fcntl, fcntl64);
#else
WRAP(int, fcntl, int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void *argument = va_arg(arguments, void *);
  va_end(arguments);
  if (!on_board() || (!is_board_descriptor(fd) && trying(command) == 0))
    return REAL(fcntl)(fd, command, argument);
  return vboard_fcntl64(fd, command, argument);
}
#endif

namespace {

// The interposer's own descriptors survive "close everything": its trace goes on.
int close_between(unsigned int first, unsigned int last) {
  rlimit limit;
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && last >= limit.rlim_cur)
    last = static_cast<unsigned int>(limit.rlim_cur - 1);
  for (unsigned int fd = first; fd <= last; ++fd) {
    const int number = static_cast<int>(fd);
    if (is_own_descriptor(number))
      continue;
    if (is_board_descriptor(number))
      vboard_close(number);
    else
      sys_close(number);
  }
  return 0;
}

}  // namespace

WRAP(int, close_range, unsigned int first, unsigned int last, int flags) {
  if (!on_board() || flags != 0)
    return REAL(close_range)(first, last, flags);
  if (first > last)
    return report(-EINVAL);
  return close_between(first, last);
}

WRAP(void, closefrom, int first) {
  if (!on_board()) {
    REAL(closefrom)(first);
    return;
  }
  close_between(first < 0 ? 0 : static_cast<unsigned int>(first), ~0u);
}
