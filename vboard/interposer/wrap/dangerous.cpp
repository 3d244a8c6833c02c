// Wraps mount umount umount2 reboot swapon swapoff pivot_root chroot acct sethostname setdomainname
// sched_setscheduler sched_setparam pthread_setschedparam pthread_setschedprio
// pthread_attr_setschedpolicy pthread_attr_setschedparam nice setpriority mlockall iopl ioperm
// klogctl openlog syslog vsyslog __syslog_chk __vsyslog_chk closelog.
//
// What would change the PC itself. The board answers that it has been done; nothing reaches the PC.

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/paths.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <stdarg.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace vboard;

namespace {

// A line with up to three words, and success.
int pretend(const char *call, const char *first = nullptr, const char *second = nullptr,
            const char *third = nullptr) {
  if (tracing()) {
    TraceLine line;
    trace_begin(line, call, {});
    for (const char *word : {first, second, third}) {
      if (word != nullptr && *word != '\0')
        trace_word(line, word);
    }
    trace_end(line, 0, 0);
  }
  spend_call();
  return 0;
}

// Whether a path names something that the board has, for calls that fail without it.
int check_exists(const char *path) {
  if (path == nullptr)
    return -EFAULT;
  Resolved resolved;
  resolve(AT_FDCWD, path, true, resolved);
  if (resolved.place == Place::kMissing)
    return -resolved.error;
  return sys_access(host_path(resolved, path), F_OK);
}

}  // namespace

WRAP(int, mount, const char *source, const char *target, const char *type, unsigned long flags,
     const void *data) {
  if (!on_board())
    return REAL(mount)(source, target, type, flags, data);
  int result = check_exists(target);
  if (result == 0 && source != nullptr && *source == '/')
    result = check_exists(source);
  if (result == 0)
    return pretend("mount", source, target, type);
  trace_call("mount", target != nullptr ? target : "", result, -result);
  spend_call();
  return report(result);
}

WRAP(int, umount2, const char *target, int flags) {
  return on_board() ? pretend("umount", target) : REAL(umount2)(target, flags);
}

WRAP(int, umount, const char *target) {
  return on_board() ? pretend("umount", target) : REAL(umount)(target);
}

WRAP(int, swapon, const char *path, int flags) {
  return on_board() ? pretend("swapon", path) : REAL(swapon)(path, flags);
}

WRAP(int, swapoff, const char *path) {
  return on_board() ? pretend("swapoff", path) : REAL(swapoff)(path);
}

WRAP(int, pivot_root, const char *root, const char *old) {
  return on_board() ? pretend("pivot_root", root, old) : REAL(pivot_root)(root, old);
}

// Below another root the board's names would mean something else.
WRAP(int, chroot, const char *path) {
  return on_board() ? report(-EPERM) : REAL(chroot)(path);
}

WRAP(int, acct, const char *path) {
  return on_board() ? pretend("acct", path) : REAL(acct)(path);
}

WRAP(int, sethostname, const char *name, std::size_t size) {
  return on_board() ? pretend("sethostname") : REAL(sethostname)(name, size);
}

WRAP(int, setdomainname, const char *name, std::size_t size) {
  return on_board() ? pretend("setdomainname") : REAL(setdomainname)(name, size);
}

WRAP(int, reboot, int command) {
  if (!on_board())
    return REAL(reboot)(command);
  // Ctrl-Alt-Del being allowed (0x89ABCDEF) or not (0) is no reboot.
  if (command == 0 || command == static_cast<int>(0x89ABCDEF))
    return pretend("reboot", command == 0 ? "CAD_OFF" : "CAD_ON");
  TraceLine line;
  trace_begin(line, "reboot", {});
  trace_hex(line, "", static_cast<std::uint32_t>(command));
  trace_end(line, 0, 0);
  end_run(kBoardReboot);
}

// Scheduling: a real-time program that computes would take the PC's processor.

namespace {

constexpr const char *kPolicies[] = {"OTHER", "FIFO", "RR", "BATCH", "ISO", "IDLE", "DEADLINE"};

// 0 or an errno, positive. The trace names a process that is not the caller.
int set_policy(const char *call, int policy, int priority, pid_t process = 0) {
  policy &= ~SCHED_RESET_ON_FORK;
  const bool real_time = policy == SCHED_FIFO || policy == SCHED_RR;
  if (policy < 0 || policy > 6)
    return EINVAL;
  if (real_time ? priority < 1 || priority > 99 : priority != 0)
    return EINVAL;
  if (tracing()) {
    TraceLine line;
    trace_begin(line, call, {});
    trace_word(line, kPolicies[policy]);
    trace_number(line, "", priority);
    if (process != 0 && process != getpid())
      trace_number(line, "pid=", process);
    trace_end(line, 0, 0);
  }
  spend_call();
  return 0;
}

bool is_real_time(int policy) {
  policy &= ~SCHED_RESET_ON_FORK;
  return policy == SCHED_FIFO || policy == SCHED_RR;
}

}  // namespace

WRAP(int, sched_setscheduler, pid_t process, int policy, const sched_param *parameters) {
  if (!on_board())
    return REAL(sched_setscheduler)(process, policy, parameters);
  return report(-set_policy("sched_setscheduler", policy, parameters->sched_priority, process));
}

WRAP(int, sched_setparam, pid_t process, const sched_param *parameters) {
  if (!on_board())
    return REAL(sched_setparam)(process, parameters);
  const int policy = parameters->sched_priority > 0 ? SCHED_RR : SCHED_OTHER;
  return report(-set_policy("sched_setparam", policy, parameters->sched_priority, process));
}

WRAP(int, pthread_setschedparam, pthread_t thread, int policy, const sched_param *parameters) {
  if (!on_board())
    return REAL(pthread_setschedparam)(thread, policy, parameters);
  return set_policy("pthread_setschedparam", policy, parameters->sched_priority);
}

WRAP(int, pthread_setschedprio, pthread_t thread, int priority) {
  if (!on_board())
    return REAL(pthread_setschedprio)(thread, priority);
  return set_policy("pthread_setschedprio", priority > 0 ? SCHED_RR : SCHED_OTHER, priority);
}

// A thread made with these attributes is an ordinary one.
WRAP(int, pthread_attr_setschedpolicy, pthread_attr_t *attributes, int policy) {
  return on_board() && is_real_time(policy) ? 0
                                            : REAL(pthread_attr_setschedpolicy)(attributes, policy);
}

WRAP(int, pthread_attr_setschedparam, pthread_attr_t *attributes, const sched_param *parameters) {
  return on_board() && parameters->sched_priority > 0
             ? 0
             : REAL(pthread_attr_setschedparam)(attributes, parameters);
}

WRAP(int, nice, int increment) {
  return on_board() && increment < 0 ? 0 : REAL(nice)(increment);
}

WRAP(int, setpriority, int which, id_t who, int priority) {
  return on_board() && priority < 0 ? 0 : REAL(setpriority)(which, who, priority);
}

WRAP(int, mlockall, int flags) {
  return on_board() ? 0 : REAL(mlockall)(flags);
}

WRAP(int, iopl, int level) {
  return on_board() ? report(-EPERM) : REAL(iopl)(level);
}

WRAP(int, ioperm, unsigned long from, unsigned long count, int on) {
  return on_board() ? report(-EPERM) : REAL(ioperm)(from, count, on);
}

WRAP(int, klogctl, int type, char *buffer, int size) {
  return on_board() ? report(-EPERM) : REAL(klogctl)(type, buffer, size);
}

// libc would connect to the PC's logger without passing connect().
WRAP(void, vsyslog, int priority, const char *format, va_list arguments) {
  if (!on_board())
    REAL(vsyslog)(priority, format, arguments);
}

WRAP(void, __vsyslog_chk, int priority, int flag, const char *format, va_list arguments) {
  if (!on_board())
    REAL(__vsyslog_chk)(priority, flag, format, arguments);
}

WRAP(void, syslog, int priority, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vboard_vsyslog(priority, format, arguments);
  va_end(arguments);
}

WRAP(void, __syslog_chk, int priority, int flag, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vboard___vsyslog_chk(priority, flag, format, arguments);
  va_end(arguments);
}

WRAP(void, openlog, const char *name, int option, int facility) {
  if (!on_board())
    REAL(openlog)(name, option, facility);
}

WRAP(void, closelog, void) {
  if (!on_board())
    REAL(closelog)();
}
