// Wraps unlink unlinkat remove rmdir rename renameat renameat2 mkdir mkdirat symlink symlinkat link
// linkat mknod mknodat mkfifo mkfifoat chmod fchmodat chown lchown fchownat utime utimes lutimes
// utimensat truncate truncate64.

#include "vboard/base/kernel.h"
#include "vboard/board/attributes.h"
#include "vboard/board/board_files.h"
#include "vboard/interposer/core/opening.h"
#include "vboard/interposer/core/paths.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"
#include "vboard/interposer/models/model.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <utime.h>

#include <string_view>

using namespace vboard;

namespace {

int kernel_result(int result) {
  return result < 0 ? -errno : result;
}

// Calls that change something by name. `act` gets the board's file; where the PC has the only one,
// it must not be touched: the board's own copy is made first. New names need only their
// directories.
template <typename Act>
int change(const char *call, int directory, const char *path, bool follow, bool makes, Act act) {
  Resolved resolved;
  resolve(directory, path, follow, resolved);
  int result;
  switch (resolved.place) {
    case Place::kPc:
      return act(directory, path);
    case Place::kPcByName:
      return act(AT_FDCWD, resolved.asked);
    case Place::kMissing:
      result = -resolved.error;
      break;
    case Place::kNode:
    case Place::kAttribute:
      // The board's devices come and go with its directory; rights and times of one are not kept.
      result = makes ? -EEXIST : 0;
      break;
    case Place::kFallback: {
      FileStatus status;
      const bool exists = sys_stat(resolved.asked, status, follow) == 0;
      resolved.traced = true;
      if (makes && exists) {
        result = -EEXIST;
      } else if (!makes && !exists) {
        result = -ENOENT;
      } else if (exists && S_ISDIR(status.mode)) {
        result = -EROFS;  // there is no copying of the PC's directories
      } else {
        result = copy_up(resolved, true);
        if (result == 0)
          result = kernel_result(act(AT_FDCWD, resolved.host));
      }
      break;
    }
    default:
      result = take_over(resolved);
      if (result == 0)
        result = kernel_result(act(AT_FDCWD, resolved.host));
  }
  return end_by_name(call, resolved, result);
}

// The board's own copy of what is to be removed or renamed, which the template must not bring back.
int prepare(Resolved &resolved) {
  const int result = take_over(resolved);
  return result == 0 ? prepare_removal(resolved.host) : result;
}

}  // namespace

WRAP(int, unlinkat, int directory, const char *path, int flags) {
  if (!on_board())
    return REAL(unlinkat)(directory, path, flags);
  Resolved resolved;
  resolve(directory, path, false, resolved);
  const char *call = flags & AT_REMOVEDIR ? "rmdir" : "unlink";
  int result;
  switch (resolved.place) {
    case Place::kPc:
      return REAL(unlinkat)(directory, path, flags);
    case Place::kPcByName:
      return REAL(unlinkat)(AT_FDCWD, resolved.asked, flags);
    case Place::kMissing:
      result = -resolved.error;
      break;
    case Place::kNode:
    case Place::kAttribute:
      result = -EPERM;
      break;
    case Place::kDirectory:
      if ((flags & AT_REMOVEDIR) && std::string_view(resolved.real).starts_with("/sys/")) {
        result = remove_sys_directory(board_directory(), resolved.real);
        break;
      }
      result = prepare(resolved);
      if (result == 0)
        result = kernel_result(REAL(unlinkat)(AT_FDCWD, resolved.host, flags));
      break;
    case Place::kFallback:
      // What only the PC has cannot be removed from the board.
      result = sys_access(resolved.asked, F_OK) == 0 ? -EROFS : -ENOENT;
      resolved.traced = true;
      break;
    default:
      result = prepare(resolved);
      if (result == 0)
        result = kernel_result(REAL(unlinkat)(AT_FDCWD, resolved.host, flags));
  }
  return end_by_name(call, resolved, result);
}

WRAP(int, unlink, const char *path) {
  return vboard_unlinkat(AT_FDCWD, path, 0);
}

WRAP(int, rmdir, const char *path) {
  return vboard_unlinkat(AT_FDCWD, path, AT_REMOVEDIR);
}

WRAP(int, remove, const char *path) {
  const int result = vboard_unlink(path);
  return result < 0 && (errno == EISDIR || errno == EPERM) ? vboard_rmdir(path) : result;
}

WRAP(int, renameat2, int from_directory, const char *from, int to_directory, const char *to,
     unsigned int flags) {
  if (!on_board())
    return REAL(renameat2)(from_directory, from, to_directory, to, flags);
  Resolved source;
  Resolved target;
  resolve(from_directory, from, false, source);
  resolve(to_directory, to, false, target);
  if (source.place == Place::kPc && target.place == Place::kPc)
    return REAL(renameat2)(from_directory, from, to_directory, to, flags);

  int result = 0;
  auto is_fixed = [](Place place) { return place == Place::kNode || place == Place::kAttribute; };
  auto is_pc = [](Place place) { return place == Place::kPc || place == Place::kPcByName; };
  if (source.place == Place::kMissing)
    result = -source.error;
  else if (target.place == Place::kMissing && target.error != ENOENT)
    result = -target.error;
  else if (is_fixed(source.place) || is_fixed(target.place) || target.place == Place::kMissing)
    result = -EPERM;
  else if (is_pc(source.place) != is_pc(target.place))
    result = -EXDEV;  // programs copy then
  else if (source.place == Place::kFallback)
    result = sys_access(source.asked, F_OK) == 0 ? -EROFS : -ENOENT;
  if (result == 0)
    result = prepare(source);
  if (result == 0)
    result = target.place == Place::kFallback ? copy_up(target, false) : take_over(target);
  if (result == 0) {
    // Both are the PC's by name, or both the board's files.
    auto name = [&](const Resolved &one, const char *path) {
      return one.place == Place::kFallback ? one.host : host_path(one, path);
    };
    result = kernel_result(REAL(renameat2)(
        source.place == Place::kPc ? from_directory : AT_FDCWD, name(source, from),
        target.place == Place::kPc ? to_directory : AT_FDCWD, name(target, to), flags));
  }
  source.traced = source.traced || target.traced;
  return end_by_name("rename", source.place == Place::kPc ? target : source, result);
}

WRAP(int, renameat, int from_directory, const char *from, int to_directory, const char *to) {
  return vboard_renameat2(from_directory, from, to_directory, to, 0);
}

WRAP(int, rename, const char *from, const char *to) {
  return vboard_renameat2(AT_FDCWD, from, AT_FDCWD, to, 0);
}

WRAP(int, mkdirat, int directory, const char *path, mode_t mode) {
  if (!on_board())
    return REAL(mkdirat)(directory, path, mode);
  Resolved resolved;
  resolve(directory, path, false, resolved);
  // A directory of the kernel's own comes with what is in it, where there can be one at all.
  if (resolved.place == Place::kMissing && resolved.error == ENOENT &&
      std::string_view(resolved.real).starts_with("/sys/"))
    return end_by_name("mkdir", resolved, make_sys_directory(board_directory(), resolved.real));
  return change("mkdir", directory, path, false, true,
                [&](int at, const char *name) { return REAL(mkdirat)(at, name, mode); });
}

WRAP(int, mkdir, const char *path, mode_t mode) {
  return vboard_mkdirat(AT_FDCWD, path, mode);
}

WRAP(int, symlinkat, const char *target, int directory, const char *path) {
  if (!on_board())
    return REAL(symlinkat)(target, directory, path);
  return change("symlink", directory, path, false, true,
                [&](int at, const char *name) { return REAL(symlinkat)(target, at, name); });
}

WRAP(int, symlink, const char *target, const char *path) {
  return vboard_symlinkat(target, AT_FDCWD, path);
}

WRAP(int, linkat, int from_directory, const char *from, int to_directory, const char *to,
     int flags) {
  if (!on_board())
    return REAL(linkat)(from_directory, from, to_directory, to, flags);
  Resolved source;
  Resolved target;
  resolve(from_directory, from, (flags & AT_SYMLINK_FOLLOW) != 0, source);
  resolve(to_directory, to, false, target);
  if (source.place == Place::kPc && target.place == Place::kPc)
    return REAL(linkat)(from_directory, from, to_directory, to, flags);
  return report(source.place == Place::kMissing ? -source.error : -EXDEV);
}

WRAP(int, link, const char *from, const char *to) {
  return vboard_linkat(AT_FDCWD, from, AT_FDCWD, to, 0);
}

WRAP(int, mknodat, int directory, const char *path, mode_t mode, dev_t device) {
  if (!on_board())
    return REAL(mknodat)(directory, path, mode, device);
  return change("mknod", directory, path, false, true, [&](int at, const char *name) {
    // A device made elsewhere would be a way to the PC's.
    if (S_ISCHR(mode) || S_ISBLK(mode)) {
      errno = EPERM;
      return -1;
    }
    return REAL(mknodat)(at, name, mode, device);
  });
}

WRAP(int, mknod, const char *path, mode_t mode, dev_t device) {
  return vboard_mknodat(AT_FDCWD, path, mode, device);
}

WRAP(int, mkfifoat, int directory, const char *path, mode_t mode) {
  return vboard_mknodat(directory, path, (mode & 07777) | S_IFIFO, 0);
}

WRAP(int, mkfifo, const char *path, mode_t mode) {
  return vboard_mkfifoat(AT_FDCWD, path, mode);
}

WRAP(int, fchmodat, int directory, const char *path, mode_t mode, int flags) {
  if (!on_board())
    return REAL(fchmodat)(directory, path, mode, flags);
  return change("chmod", directory, path, true, false,
                [&](int at, const char *name) { return REAL(fchmodat)(at, name, mode, flags); });
}

WRAP(int, chmod, const char *path, mode_t mode) {
  return vboard_fchmodat(AT_FDCWD, path, mode, 0);
}

WRAP(int, fchownat, int directory, const char *path, uid_t user, gid_t group, int flags) {
  if (!on_board())
    return REAL(fchownat)(directory, path, user, group, flags);
  return change(
      "chown", directory, path, (flags & AT_SYMLINK_NOFOLLOW) == 0, false,
      [&](int at, const char *name) { return REAL(fchownat)(at, name, user, group, flags); });
}

WRAP(int, chown, const char *path, uid_t user, gid_t group) {
  return vboard_fchownat(AT_FDCWD, path, user, group, 0);
}

WRAP(int, lchown, const char *path, uid_t user, gid_t group) {
  return vboard_fchownat(AT_FDCWD, path, user, group, AT_SYMLINK_NOFOLLOW);
}

WRAP(int, utimensat, int directory, const char *path, const timespec *times, int flags) {
  if (!on_board() || path == nullptr)
    return REAL(utimensat)(directory, path, times, flags);
  return change("utime", directory, path, (flags & AT_SYMLINK_NOFOLLOW) == 0, false,
                [&](int at, const char *name) { return REAL(utimensat)(at, name, times, flags); });
}

namespace {

int set_times(const char *path, const timeval *times, int flags) {
  timespec converted[2];
  for (int i = 0; times != nullptr && i < 2; ++i)
    converted[i] = {times[i].tv_sec, times[i].tv_usec * 1000};
  return vboard_utimensat(AT_FDCWD, path, times != nullptr ? converted : nullptr, flags);
}

}  // namespace

WRAP(int, utimes, const char *path, const timeval *times) {
  return set_times(path, times, 0);
}

WRAP(int, lutimes, const char *path, const timeval *times) {
  return set_times(path, times, AT_SYMLINK_NOFOLLOW);
}

WRAP(int, utime, const char *path, const utimbuf *times) {
  if (times == nullptr)
    return set_times(path, nullptr, 0);
  timeval converted[2] = {{times->actime, 0}, {times->modtime, 0}};
  return set_times(path, converted, 0);
}

WRAP(int, truncate64, const char *path, off64_t size) {
  if (!on_board())
    return REAL(truncate64)(path, size);
  return change("truncate", AT_FDCWD, path, true, false,
                [&](int, const char *name) { return REAL(truncate64)(name, size); });
}

#if __SIZEOF_POINTER__ == 8
WRAP_ALIAS(truncate, truncate64);
#else
WRAP(int, truncate, const char *path, __off_t size) {
  return vboard_truncate64(path, size);
}
#endif
