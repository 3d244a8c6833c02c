// Wraps open open64 openat openat64 creat creat64 __open_2 __open64_2 __openat_2 __openat64_2.

#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/opening.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>

using namespace vboard;

namespace {

bool takes_mode(int flags) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

}  // namespace

WRAP(int, openat, int directory, const char *path, int flags, ...) {
  mode_t mode = 0;
  if (takes_mode(flags)) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  if (!on_board())
    return REAL(openat)(directory, path, flags, mode);
  Resolved resolved;
  resolve(directory, path, (flags & O_NOFOLLOW) == 0, resolved);
  if (resolved.place == Place::kPc || resolved.place == Place::kPcByName) {
    const char *name = host_path(resolved, path);
    if (name != nullptr && directory == AT_FDCWD && is_foreign_device(name))
      return report(-ENOENT);
    const int fd =
        REAL(openat)(resolved.place == Place::kPc ? directory : AT_FDCWD, name, flags, mode);
    // libc may have closed a descriptor of the board by itself; its number is another file's now.
    detach(fd);
    return fd;
  }
  return report(open_on_board(resolved, flags, mode));
}
WRAP_ALIAS(openat64, openat);

WRAP(int, open, const char *path, int flags, ...) {
  mode_t mode = 0;
  if (takes_mode(flags)) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  return vboard_openat(AT_FDCWD, path, flags, mode);
}
WRAP_ALIAS(open64, open);

WRAP(int, creat, const char *path, mode_t mode) {
  return vboard_openat(AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC, mode);
}
WRAP_ALIAS(creat64, creat);

// The fortified names, for calls without a mode.
WRAP(int, __open_2, const char *path, int flags) {
  return vboard_openat(AT_FDCWD, path, flags);
}
WRAP_ALIAS(__open64_2, __open_2);

WRAP(int, __openat_2, int directory, const char *path, int flags) {
  return vboard_openat(directory, path, flags);
}
WRAP_ALIAS(__openat64_2, __openat_2);
