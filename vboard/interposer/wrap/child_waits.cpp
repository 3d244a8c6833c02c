// Wraps wait waitpid wait3 wait4 waitid.
//
// Waiting for a child is a wait like any other in a jumping run. At a fixed speed it is the
// kernel's.

#include "vboard/interposer/core/kernel_waits.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>

using namespace vboard;

DECLARE_WRAPPED(pid_t, wait4, pid_t, int *, int, rusage *);
DECLARE_WRAPPED(int, waitid, idtype_t, id_t, siginfo_t *, int);

namespace {

struct ChildWait {
  pid_t which;
  int options;
  int status;
  rusage usage;
  pid_t result;
  int error;
};

// A child, or the news that there is none to wait for.
bool found_child(const void *context) {
  ChildWait &wait = *static_cast<ChildWait *>(const_cast<void *>(context));
  wait.result = REAL(wait4)(wait.which, &wait.status, wait.options | WNOHANG, &wait.usage);
  wait.error = errno;
  return wait.result != 0;
}

struct StateWait {
  idtype_t type;
  id_t id;
  int options;
  siginfo_t info;
  int result;
  int error;
};

bool found_state(const void *context) {
  StateWait &wait = *static_cast<StateWait *>(const_cast<void *>(context));
  memset(&wait.info, 0, sizeof wait.info);
  wait.result = REAL(waitid)(wait.type, wait.id, &wait.info, wait.options | WNOHANG);
  wait.error = errno;
  return wait.result != 0 || wait.info.si_pid != 0;
}

}  // namespace

WRAP(pid_t, wait4, pid_t which, int *status, int options, rusage *usage) {
  if (!on_board() || !jumping() || (options & WNOHANG))
    return REAL(wait4)(which, status, options, usage);
  ChildWait wait = {which, options, 0, {}, 0, 0};
  if (!found_child(&wait) && await_true(found_child, &wait, "a child") < 0)
    return report(-EINTR);
  if (wait.result < 0) {
    errno = wait.error;
    return -1;
  }
  if (status != nullptr)
    *status = wait.status;
  if (usage != nullptr)
    *usage = wait.usage;
  return wait.result;
}

WRAP(pid_t, waitpid, pid_t which, int *status, int options) {
  return vboard_wait4(which, status, options, nullptr);
}

WRAP(pid_t, wait, int *status) {
  return vboard_wait4(-1, status, 0, nullptr);
}

WRAP(pid_t, wait3, int *status, int options, rusage *usage) {
  return vboard_wait4(-1, status, options, usage);
}

WRAP(int, waitid, idtype_t type, id_t id, siginfo_t *info, int options) {
  if (!on_board() || !jumping() || (options & WNOHANG))
    return REAL(waitid)(type, id, info, options);
  StateWait wait = {type, id, options, {}, 0, 0};
  if (!found_state(&wait) && await_true(found_state, &wait, "a child") < 0)
    return report(-EINTR);
  if (wait.result < 0) {
    errno = wait.error;
    return -1;
  }
  if (info != nullptr)
    *info = wait.info;
  return 0;
}
