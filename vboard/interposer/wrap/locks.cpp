// Wraps flock lockf lockf64.
//
// Waiting for a lock on a file is a wait like any other in a jumping run.

#include "vboard/interposer/core/kernel_waits.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <sys/file.h>
#include <unistd.h>

using namespace vboard;

DECLARE_WRAPPED(int, flock, int, int);
DECLARE_WRAPPED(int, lockf64, int, int, off64_t);

namespace {

struct LockWait {
  int fd;
  int operation;
  off64_t size;
  int result;
  int error;
};

bool took_flock(const void *context) {
  LockWait &wait = *static_cast<LockWait *>(const_cast<void *>(context));
  wait.result = REAL(flock)(wait.fd, wait.operation | LOCK_NB);
  wait.error = errno;
  return wait.result == 0 || errno != EWOULDBLOCK;
}

bool took_range(const void *context) {
  LockWait &wait = *static_cast<LockWait *>(const_cast<void *>(context));
  wait.result = REAL(lockf64)(wait.fd, F_TLOCK, wait.size);
  wait.error = errno;
  return wait.result == 0 || (errno != EACCES && errno != EAGAIN);
}

int lock_in_turn(bool (*take)(const void *), LockWait &wait) {
  if (!take(&wait) && await_true(take, &wait, "a lock on a file") < 0)
    return report(-EINTR);
  errno = wait.error;
  return wait.result;
}

}  // namespace

WRAP(int, flock, int fd, int operation) {
  if (!on_board() || !jumping() || (operation & (LOCK_NB | LOCK_UN)))
    return REAL(flock)(fd, operation);
  LockWait wait = {fd, operation, 0, 0, 0};
  return lock_in_turn(took_flock, wait);
}

WRAP(int, lockf64, int fd, int operation, off64_t size) {
  if (!on_board() || !jumping() || operation != F_LOCK)
    return REAL(lockf64)(fd, operation, size);
  LockWait wait = {fd, operation, size, 0, 0};
  return lock_in_turn(took_range, wait);
}

#if __SIZEOF_POINTER__ == 8
WRAP_ALIAS(lockf, lockf64);
#else
WRAP(int, lockf, int fd, int operation, __off_t size) {
  return vboard_lockf64(fd, operation, size);
}
#endif
