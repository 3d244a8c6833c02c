// Wraps getxattr lgetxattr fgetxattr listxattr llistxattr flistxattr setxattr lsetxattr fsetxattr
// removexattr lremovexattr copy_file_range sendfile sendfile64 splice.
//
// What a program does to files beyond reading and writing them: the board's have no attributes of
// that kind, and their bytes go through read() and write() alone.

#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/paths.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/types.h>
#include <unistd.h>

using namespace vboard;

namespace {

// The error for a path that is not the PC's as such; 0 leaves the call to libc.
int refusal(const char *path, bool follow) {
  if (!on_board() || is_plainly_pc(path))
    return 0;
  Resolved resolved;
  resolve(AT_FDCWD, path, follow, resolved);
  if (resolved.place == Place::kPc)
    return 0;
  return resolved.place == Place::kMissing ? -resolved.error : -ENOTSUP;
}

bool is_boards(int fd) {
  return on_board() && is_board_descriptor(fd);
}

}  // namespace

WRAP(ssize_t, getxattr, const char *path, const char *name, void *value, std::size_t size) {
  const int error = refusal(path, true);
  return error != 0 ? report(error) : REAL(getxattr)(path, name, value, size);
}

WRAP(ssize_t, lgetxattr, const char *path, const char *name, void *value, std::size_t size) {
  const int error = refusal(path, false);
  return error != 0 ? report(error) : REAL(lgetxattr)(path, name, value, size);
}

WRAP(ssize_t, fgetxattr, int fd, const char *name, void *value, std::size_t size) {
  return is_boards(fd) ? report(-ENOTSUP) : REAL(fgetxattr)(fd, name, value, size);
}

WRAP(ssize_t, listxattr, const char *path, char *list, std::size_t size) {
  const int error = refusal(path, true);
  return error != 0 ? report(error) : REAL(listxattr)(path, list, size);
}

WRAP(ssize_t, llistxattr, const char *path, char *list, std::size_t size) {
  const int error = refusal(path, false);
  return error != 0 ? report(error) : REAL(llistxattr)(path, list, size);
}

WRAP(ssize_t, flistxattr, int fd, char *list, std::size_t size) {
  return is_boards(fd) ? report(-ENOTSUP) : REAL(flistxattr)(fd, list, size);
}

WRAP(int, setxattr, const char *path, const char *name, const void *value, std::size_t size,
     int flags) {
  const int error = refusal(path, true);
  return error != 0 ? report(error) : REAL(setxattr)(path, name, value, size, flags);
}

WRAP(int, lsetxattr, const char *path, const char *name, const void *value, std::size_t size,
     int flags) {
  const int error = refusal(path, false);
  return error != 0 ? report(error) : REAL(lsetxattr)(path, name, value, size, flags);
}

WRAP(int, fsetxattr, int fd, const char *name, const void *value, std::size_t size, int flags) {
  return is_boards(fd) ? report(-ENOTSUP) : REAL(fsetxattr)(fd, name, value, size, flags);
}

WRAP(int, removexattr, const char *path, const char *name) {
  const int error = refusal(path, true);
  return error != 0 ? report(error) : REAL(removexattr)(path, name);
}

WRAP(int, lremovexattr, const char *path, const char *name) {
  const int error = refusal(path, false);
  return error != 0 ? report(error) : REAL(lremovexattr)(path, name);
}

// The kernel answers EINVAL for devices as well: programs read and write then.
WRAP(ssize_t, copy_file_range, int from, off64_t *from_offset, int to, off64_t *to_offset,
     std::size_t size, unsigned int flags) {
  if (is_boards(from) || is_boards(to))
    return report(-EINVAL);
  return REAL(copy_file_range)(from, from_offset, to, to_offset, size, flags);
}

WRAP(ssize_t, sendfile64, int to, int from, off64_t *offset, std::size_t size) {
  if (is_boards(from) || is_boards(to))
    return report(-EINVAL);
  return REAL(sendfile64)(to, from, offset, size);
}

#if __SIZEOF_POINTER__ == 8
WRAP_ALIAS(sendfile, sendfile64);
#else
WRAP(ssize_t, sendfile, int to, int from, __off_t *offset, std::size_t size) {
  if (is_boards(from) || is_boards(to))
    return report(-EINVAL);
  return REAL(sendfile)(to, from, offset, size);
}
#endif

WRAP(ssize_t, splice, int from, off64_t *from_offset, int to, off64_t *to_offset, std::size_t size,
     unsigned int flags) {
  if (is_boards(from) || is_boards(to))
    return report(-EINVAL);
  return REAL(splice)(from, from_offset, to, to_offset, size, flags);
}
