// Wraps stat stat64 lstat lstat64 fstat fstat64 fstatat fstatat64 __xstat __xstat64 __lxstat
// __lxstat64 __fxstat __fxstat64 __fxstatat __fxstatat64 statx statfs statfs64 statvfs statvfs64.

// The headers' own names for the two layouts of struct stat are wanted here, not their redirection.
#undef _FILE_OFFSET_BITS
#include "vboard/base/text.h"
#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/paths.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

using namespace vboard;

namespace {

// A device node is a text file of the board directory; to the program it is a device.
struct Device {
  unsigned int type;  // S_IFCHR or S_IFBLK
  unsigned int major_number, minor_number;
};

Device device_of(const Node &node) {
  Device device = {S_IFCHR, 0, 0};
  if (node_text(node, "type") == "block")
    device.type = S_IFBLK;
  const std::string_view number = node_text(node, "number");
  const std::size_t colon = number.find(':');
  std::int64_t major_number, minor_number;
  if (colon != std::string_view::npos && parse_number(number.substr(0, colon), major_number) &&
      parse_number(number.substr(colon + 1), minor_number)) {
    device.major_number = static_cast<unsigned int>(major_number);
    device.minor_number = static_cast<unsigned int>(minor_number);
  }
  return device;
}

template <typename Stat>
void show_device(const Node &node, Stat &out) {
  const Device device = device_of(node);
  out.st_mode = device.type | (out.st_mode & 0666);
  out.st_rdev = makedev(device.major_number, device.minor_number);
  out.st_size = 0;
  out.st_blocks = 0;
}

// Every stat by path comes to this. `plain` asks the kernel (directory, path, flags, out).
template <typename Stat>
int stat_at(int directory, const char *path, int flags, Stat *out,
            int (*plain)(int, const char *, int, Stat *)) {
  if (!on_board())
    return plain(directory, path, flags, out);
  Resolved resolved;
  resolve(directory, path, (flags & AT_SYMLINK_NOFOLLOW) == 0, resolved);
  if (resolved.place == Place::kPc)
    return plain(directory, path, flags, out);
  int result;
  if (resolved.place == Place::kMissing) {
    result = -resolved.error;
  } else {
    result = plain(AT_FDCWD, host_path(resolved, path), flags, out);
    if (result < 0)
      result = -errno;
    if (result == 0 && resolved.place == Place::kNode) {
      Node node;
      node.length = 0;
      load_node(resolved.host, node);
      show_device(node, *out);
    }
  }
  if (resolved.traced) {
    trace_call("stat", resolved.asked, result, -result);
    spend_call();
  }
  return report(result);
}

template <typename Stat>
int stat_descriptor(int fd, Stat *out, int (*plain)(int, Stat *)) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr)
    return plain(fd, out);
  // What stands in for a medium says nothing about it.
  const int behind = description->file.medium;
  const int result = plain(behind >= 0 ? behind : fd, out);
  if (result == 0 && description->kind == Kind::kModel)
    show_device(description->file.node, *out);
  release(description);
  return result;
}

}  // namespace

// The kernel's answers come by the names that every libc since 2.33 has.
DECLARE_WRAPPED(int, fstatat, int, const char *, struct stat *, int);
DECLARE_WRAPPED(int, fstatat64, int, const char *, struct stat64 *, int);
DECLARE_WRAPPED(int, fstat, int, struct stat *);
DECLARE_WRAPPED(int, fstat64, int, struct stat64 *);

namespace {

int plain_stat(int directory, const char *path, int flags, struct stat *out) {
  return REAL(fstatat)(directory, path, out, flags);
}

int plain_stat64(int directory, const char *path, int flags, struct stat64 *out) {
  return REAL(fstatat64)(directory, path, out, flags);
}

int plain_fstat(int fd, struct stat *out) {
  return REAL(fstat)(fd, out);
}

int plain_fstat64(int fd, struct stat64 *out) {
  return REAL(fstat64)(fd, out);
}

// fstatat() with an empty path is fstat().
bool names_descriptor(const char *path, int flags) {
  return (flags & AT_EMPTY_PATH) != 0 && path != nullptr && *path == '\0';
}

}  // namespace

WRAP(int, fstatat, int directory, const char *path, struct stat *out, int flags) {
  if (names_descriptor(path, flags) && directory != AT_FDCWD)
    return stat_descriptor(directory, out, plain_fstat);
  return stat_at(directory, path, flags, out, plain_stat);
}

WRAP(int, fstatat64, int directory, const char *path, struct stat64 *out, int flags) {
  if (names_descriptor(path, flags) && directory != AT_FDCWD)
    return stat_descriptor(directory, out, plain_fstat64);
  return stat_at(directory, path, flags, out, plain_stat64);
}

WRAP(int, stat, const char *path, struct stat *out) {
  return stat_at(AT_FDCWD, path, 0, out, plain_stat);
}

WRAP(int, stat64, const char *path, struct stat64 *out) {
  return stat_at(AT_FDCWD, path, 0, out, plain_stat64);
}

WRAP(int, lstat, const char *path, struct stat *out) {
  return stat_at(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW, out, plain_stat);
}

WRAP(int, lstat64, const char *path, struct stat64 *out) {
  return stat_at(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW, out, plain_stat64);
}

WRAP(int, fstat, int fd, struct stat *out) {
  return stat_descriptor(fd, out, plain_fstat);
}

WRAP(int, fstat64, int fd, struct stat64 *out) {
  return stat_descriptor(fd, out, plain_fstat64);
}

// The names that programs built for an older libc import; the version is the layout's, which has
// been one and the same ever since.
WRAP(int, __xstat, int, const char *path, struct stat *out) {
  return vboard_stat(path, out);
}

WRAP(int, __xstat64, int, const char *path, struct stat64 *out) {
  return vboard_stat64(path, out);
}

WRAP(int, __lxstat, int, const char *path, struct stat *out) {
  return vboard_lstat(path, out);
}

WRAP(int, __lxstat64, int, const char *path, struct stat64 *out) {
  return vboard_lstat64(path, out);
}

WRAP(int, __fxstat, int, int fd, struct stat *out) {
  return vboard_fstat(fd, out);
}

WRAP(int, __fxstat64, int, int fd, struct stat64 *out) {
  return vboard_fstat64(fd, out);
}

WRAP(int, __fxstatat, int, int directory, const char *path, struct stat *out, int flags) {
  return vboard_fstatat(directory, path, out, flags);
}

WRAP(int, __fxstatat64, int, int directory, const char *path, struct stat64 *out, int flags) {
  return vboard_fstatat64(directory, path, out, flags);
}

WRAP(int, statx, int directory, const char *path, int flags, unsigned int mask, struct statx *out) {
  if (!on_board())
    return REAL(statx)(directory, path, flags, mask, out);
  Node node;
  bool device = false;
  int result;
  if (names_descriptor(path, flags)) {
    result = REAL(statx)(directory, path, flags, mask, out);
    Description *description = result == 0 ? acquire(directory) : nullptr;
    if (description != nullptr) {
      device = description->kind == Kind::kModel;
      node = description->file.node;
      release(description);
    }
  } else {
    Resolved resolved;
    resolve(directory, path, (flags & AT_SYMLINK_NOFOLLOW) == 0, resolved);
    if (resolved.place == Place::kPc)
      return REAL(statx)(directory, path, flags, mask, out);
    result = resolved.place == Place::kMissing
                 ? report(-resolved.error)
                 : REAL(statx)(AT_FDCWD, host_path(resolved, path), flags, mask, out);
    device = resolved.place == Place::kNode;
    if (device) {
      node.length = 0;
      load_node(resolved.host, node);
    }
    if (resolved.traced) {
      const int error = errno;
      trace_call("stat", resolved.asked, result, error);
      spend_call();
      errno = error;
    }
  }
  if (result == 0 && device) {
    const Device shown = device_of(node);
    out->stx_mode = static_cast<std::uint16_t>(shown.type | (out->stx_mode & 0666));
    out->stx_rdev_major = shown.major_number;
    out->stx_rdev_minor = shown.minor_number;
    out->stx_size = 0;
    out->stx_blocks = 0;
  }
  return result;
}

namespace {

// The file systems behind the board's paths are the board directory's.
template <typename Status>
int file_system_of(const char *path, Status *out, int (*plain)(const char *, Status *)) {
  if (!on_board())
    return plain(path, out);
  Resolved resolved;
  resolve(AT_FDCWD, path, true, resolved);
  if (resolved.place == Place::kMissing)
    return report(-resolved.error);
  return plain(host_path(resolved, path), out);
}

}  // namespace

WRAP(int, statfs, const char *path, struct statfs *out) {
  return file_system_of(path, out, REAL(statfs));
}

WRAP(int, statfs64, const char *path, struct statfs64 *out) {
  return file_system_of(path, out, REAL(statfs64));
}

WRAP(int, statvfs, const char *path, struct statvfs *out) {
  return file_system_of(path, out, REAL(statvfs));
}

WRAP(int, statvfs64, const char *path, struct statvfs64 *out) {
  return file_system_of(path, out, REAL(statvfs64));
}
