// Calls on files and sockets with 64-bit time. Wraps __utime64 __utimes64 __lutimes64
// __utimensat64 __fstatat64_time64 __stat64_time64 __lstat64_time64 __fstat64_time64
// __glob64_time64 __ioctl_time64 __fcntl_time64 __recvmsg64 __sendmsg64 __getsockopt64
// __setsockopt64.

#include "vboard/interposer/wrap/time64/time64.h"

#include <fcntl.h>
#include <glob.h>
#include <stdarg.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

using namespace vboard;

NARROW(int, utime, const char *, const FileTimes32 *);
WRAP(int, __utime64, const char *path, const utimbuf *times) {
  if (!on_board())
    return REAL(__utime64)(path, times);
  FileTimes32 narrowed = {};
  if (times != nullptr)
    narrowed = {clamp(times->actime), clamp(times->modtime)};
  return vboard_narrow_utime(path, times != nullptr ? &narrowed : nullptr);
}

NARROW(int, utimes, const char *, const Time32 *);
WRAP(int, __utimes64, const char *path, const timeval *times) {
  return on_board() ? vboard_narrow_utimes(path, FileTimes<timeval>(times).pointer)
                    : REAL(__utimes64)(path, times);
}

NARROW(int, lutimes, const char *, const Time32 *);
WRAP(int, __lutimes64, const char *path, const timeval *times) {
  return on_board() ? vboard_narrow_lutimes(path, FileTimes<timeval>(times).pointer)
                    : REAL(__lutimes64)(path, times);
}

NARROW(int, utimensat, int, const char *, const Time32 *, int);
WRAP(int, __utimensat64, int directory, const char *path, const timespec *times, int flags) {
  return on_board()
             ? vboard_narrow_utimensat(directory, path, FileTimes<timespec>(times).pointer, flags)
             : REAL(__utimensat64)(directory, path, times, flags);
}

// struct statx is one and the same for every width of time.
NARROW(int, statx, int, const char *, int, unsigned int, struct statx *);

WRAP(int, __fstatat64_time64, int directory, const char *path, struct stat *out, int flags) {
  if (!on_board())
    return REAL(__fstatat64_time64)(directory, path, out, flags);
  struct statx full;
  const int result = vboard_narrow_statx(directory, path, flags, STATX_BASIC_STATS, &full);
  if (result < 0)
    return result;
  *out = {};
  out->st_dev = makedev(full.stx_dev_major, full.stx_dev_minor);
  out->st_ino = full.stx_ino;
  out->st_mode = full.stx_mode;
  out->st_nlink = full.stx_nlink;
  out->st_uid = full.stx_uid;
  out->st_gid = full.stx_gid;
  out->st_rdev = makedev(full.stx_rdev_major, full.stx_rdev_minor);
  out->st_size = static_cast<off_t>(full.stx_size);
  out->st_blksize = static_cast<blksize_t>(full.stx_blksize);
  out->st_blocks = static_cast<blkcnt_t>(full.stx_blocks);
  out->st_atim = {full.stx_atime.tv_sec, static_cast<long>(full.stx_atime.tv_nsec)};
  out->st_mtim = {full.stx_mtime.tv_sec, static_cast<long>(full.stx_mtime.tv_nsec)};
  out->st_ctim = {full.stx_ctime.tv_sec, static_cast<long>(full.stx_ctime.tv_nsec)};
  return 0;
}

WRAP(int, __stat64_time64, const char *path, struct stat *out) {
  return on_board() ? vboard___fstatat64_time64(AT_FDCWD, path, out, 0)
                    : REAL(__stat64_time64)(path, out);
}

WRAP(int, __lstat64_time64, const char *path, struct stat *out) {
  return on_board() ? vboard___fstatat64_time64(AT_FDCWD, path, out, AT_SYMLINK_NOFOLLOW)
                    : REAL(__lstat64_time64)(path, out);
}

WRAP(int, __fstat64_time64, int fd, struct stat *out) {
  return on_board() ? vboard___fstatat64_time64(fd, "", out, AT_EMPTY_PATH)
                    : REAL(__fstat64_time64)(fd, out);
}

// The record differs only in the functions that a program may bring along.
NARROW(int, glob64, const char *, int, int (*)(const char *, int), glob_t *);
WRAP(int, __glob64_time64, const char *pattern, int flags, int (*failed)(const char *, int),
     glob_t *out) {
  return on_board() ? vboard_narrow_glob64(pattern, flags, failed, out)
                    : REAL(__glob64_time64)(pattern, flags, failed, out);
}

// Below are calls whose records only some commands and options have.

// The requests of the board's devices hold no times. What passes to the PC passes under this name.
NARROW(int, ioctl, int, unsigned long, ...);
WRAP(int, __ioctl_time64, int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void *argument = va_arg(arguments, void *);
  va_end(arguments);
  return on_board() ? vboard_narrow_ioctl(fd, request, argument)
                    : REAL(__ioctl_time64)(fd, request, argument);
}

NARROW(int, fcntl64, int, int, ...);
WRAP(int, __fcntl_time64, int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void *argument = va_arg(arguments, void *);
  va_end(arguments);
  return on_board() ? vboard_narrow_fcntl64(fd, command, argument)
                    : REAL(__fcntl_time64)(fd, command, argument);
}

NARROW(ssize_t, recvmsg, int, msghdr *, int);
WRAP(ssize_t, __recvmsg64, int fd, msghdr *message, int flags) {
  return on_board() ? vboard_narrow_recvmsg(fd, message, flags)
                    : REAL(__recvmsg64)(fd, message, flags);
}

NARROW(ssize_t, sendmsg, int, const msghdr *, int);
WRAP(ssize_t, __sendmsg64, int fd, const msghdr *message, int flags) {
  return on_board() ? vboard_narrow_sendmsg(fd, message, flags)
                    : REAL(__sendmsg64)(fd, message, flags);
}

NARROW(int, getsockopt, int, int, int, void *, socklen_t *);
WRAP(int, __getsockopt64, int fd, int level, int option, void *value, socklen_t *size) {
  return on_board() ? vboard_narrow_getsockopt(fd, level, option, value, size)
                    : REAL(__getsockopt64)(fd, level, option, value, size);
}

NARROW(int, setsockopt, int, int, int, const void *, socklen_t);
WRAP(int, __setsockopt64, int fd, int level, int option, const void *value, socklen_t size) {
  return on_board() ? vboard_narrow_setsockopt(fd, level, option, value, size)
                    : REAL(__setsockopt64)(fd, level, option, value, size);
}
