// Wraps access eaccess euidaccess faccessat readlink readlinkat __readlink_chk __readlinkat_chk
// realpath __realpath_chk canonicalize_file_name unlink unlinkat remove rmdir rename renameat
// renameat2 mkdir mkdirat symlink symlinkat link linkat mknod mknodat mkfifo mkfifoat chmod fchmodat
// chown lchown fchownat utime utimes lutimes utimensat truncate truncate64 chdir fchdir getcwd
// get_current_dir_name inotify_add_watch.

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "vboard/board/text.h"
#include "vboard/interposer/descriptors.h"
#include "vboard/interposer/engine.h"
#include "vboard/interposer/files.h"
#include "vboard/interposer/paths.h"
#include "vboard/interposer/state.h"
#include "vboard/interposer/trace.h"
#include "vboard/interposer/wrap.h"

using namespace vboard;

namespace {

// Ends a call by name: its trace line, its cost, libc's form of the result.
int finish(const char *call, const Resolved &resolved, int result) {
  if (resolved.traced) {
    trace_call(call, resolved.asked, result, -result);
    spend_call();
  }
  return report(result);
}

int kernel_result(int result) {
  return result < 0 ? -errno : result;
}

// Calls that change something by name. `act` gets the board's file; where the PC has the only one, it
// must not be touched: the board's own copy is made first. New names need only their directories.
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
      bool exists = sys_stat(resolved.asked, status, follow) == 0;
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
      result = kernel_result(act(AT_FDCWD, resolved.host));
  }
  return finish(call, resolved, result);
}

int access_at(int directory, const char *path, int mode, bool follow) {
  Resolved resolved;
  resolve(directory, path, follow, resolved);
  if (resolved.place == Place::kMissing)
    return finish("access", resolved, -resolved.error);
  if (resolved.place == Place::kNode)
    return finish("access", resolved, mode & X_OK ? -EACCES : 0);
  return finish("access", resolved, sys_access(host_path(resolved, path), mode));
}

}  // namespace

WRAP(int, access, const char *path, int mode) {
  if (!on_board() || is_plainly_pc(path))
    return REAL(access)(path, mode);
  return access_at(AT_FDCWD, path, mode, true);
}

WRAP(int, faccessat, int directory, const char *path, int mode, int flags) {
  if (!on_board())
    return REAL(faccessat)(directory, path, mode, flags);
  Resolved resolved;
  resolve(directory, path, (flags & AT_SYMLINK_NOFOLLOW) == 0, resolved);
  if (resolved.place == Place::kPc)
    return REAL(faccessat)(directory, path, mode, flags);
  return access_at(directory, path, mode, (flags & AT_SYMLINK_NOFOLLOW) == 0);
}

WRAP(int, euidaccess, const char *path, int mode) {
  if (!on_board() || is_plainly_pc(path))
    return REAL(euidaccess)(path, mode);
  return access_at(AT_FDCWD, path, mode, true);
}
WRAP_ALIAS(eaccess, euidaccess);

// --- Links and absolute names -------------------------------------------------------------------

namespace {

// "/proc/self/fd/3" of a modelled descriptor leads to the board's name, not to a file on the PC.
ssize_t board_link(const char *path, char *buffer, std::size_t size) {
  std::string_view name(path);
  constexpr std::string_view prefixes[] = {"/proc/self/fd/", "/dev/fd/"};
  for (std::string_view prefix : prefixes) {
    std::int64_t fd;
    if (!name.starts_with(prefix) || !parse_number(name.substr(prefix.size()), fd))
      continue;
    Description *description = fd >= 0 && fd < INT_MAX ? acquire(static_cast<int>(fd)) : nullptr;
    if (description == nullptr)
      return -1;
    std::size_t length = std::strlen(description->asked);
    length = length < size ? length : size;
    std::memcpy(buffer, description->asked, length);
    release(description);
    return static_cast<ssize_t>(length);
  }
  return -1;
}

}  // namespace

WRAP(ssize_t, readlinkat, int directory, const char *path, char *buffer, size_t size) {
  if (!on_board())
    return REAL(readlinkat)(directory, path, buffer, size);
  Resolved resolved;
  resolve(directory, path, false, resolved);
  if (resolved.place == Place::kPc || resolved.place == Place::kFallback) {
    ssize_t length = path != nullptr ? board_link(path, buffer, size) : -1;
    if (length >= 0)
      return length;
  }
  switch (resolved.place) {
    case Place::kPc:
      return REAL(readlinkat)(directory, path, buffer, size);
    case Place::kMissing:
      return finish("readlink", resolved, -resolved.error);
    default: {
      ssize_t length = sys_readlink(host_path(resolved, path), buffer, size);
      finish("readlink", resolved, static_cast<int>(length < 0 ? length : 0));
      return report(length);
    }
  }
}

WRAP(ssize_t, readlink, const char *path, char *buffer, size_t size) {
  return vboard_readlinkat(AT_FDCWD, path, buffer, size);
}

WRAP(ssize_t, __readlink_chk, const char *path, char *buffer, size_t size, size_t room) {
  if (size > room)
    return REAL(__readlink_chk)(path, buffer, size, room);
  return vboard_readlink(path, buffer, size);
}

WRAP(ssize_t, __readlinkat_chk, int directory, const char *path, char *buffer, size_t size,
     size_t room) {
  if (size > room)
    return REAL(__readlinkat_chk)(directory, path, buffer, size, room);
  return vboard_readlinkat(directory, path, buffer, size);
}

WRAP(char *, realpath, const char *path, char *out) {
  if (!on_board() || path == nullptr || *path == '\0')
    return REAL(realpath)(path, out);
  Resolved resolved;
  resolve(AT_FDCWD, path, true, resolved);
  if (resolved.place == Place::kPc) {
    char target[kPathSize];
    ssize_t length = board_link(path, target, sizeof(target) - 1);
    if (length < 0)
      return REAL(realpath)(path, out);
    target[length] = '\0';
    std::memcpy(resolved.real, target, static_cast<std::size_t>(length) + 1);
  } else if (resolved.place == Place::kPcByName || resolved.place == Place::kFallback) {
    return REAL(realpath)(resolved.asked, out);
  } else if (resolved.place == Place::kMissing) {
    errno = resolved.error;
    return nullptr;
  }
  if (out == nullptr)
    return strdup(resolved.real);
  std::memcpy(out, resolved.real, std::strlen(resolved.real) + 1);
  return out;
}

WRAP(char *, __realpath_chk, const char *path, char *out, size_t room) {
  if (room < PATH_MAX)
    return REAL(__realpath_chk)(path, out, room);
  return vboard_realpath(path, out);
}

WRAP(char *, canonicalize_file_name, const char *path) {
  return vboard_realpath(path, nullptr);
}

// --- Making, removing and renaming --------------------------------------------------------------

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
    case Place::kFallback:
      // What only the PC has cannot be removed from the board.
      result = sys_access(resolved.asked, F_OK) == 0 ? -EROFS : -ENOENT;
      resolved.traced = true;
      break;
    default:
      result = kernel_result(REAL(unlinkat)(AT_FDCWD, resolved.host, flags));
  }
  return finish(call, resolved, result);
}

WRAP(int, unlink, const char *path) {
  return vboard_unlinkat(AT_FDCWD, path, 0);
}

WRAP(int, rmdir, const char *path) {
  return vboard_unlinkat(AT_FDCWD, path, AT_REMOVEDIR);
}

WRAP(int, remove, const char *path) {
  int result = vboard_unlink(path);
  return result < 0 && (errno == EISDIR || errno == EPERM) ? vboard_rmdir(path) : result;
}

WRAP(int, renameat2, int from_directory, const char *from, int to_directory, const char *to,
     unsigned flags) {
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
  if (source.place == Place::kMissing) {
    result = -source.error;
  } else if (target.place == Place::kMissing && target.error != ENOENT) {
    result = -target.error;
  } else if (is_fixed(source.place) || is_fixed(target.place) || target.place == Place::kMissing) {
    result = -EPERM;
  } else if (is_pc(source.place) != is_pc(target.place)) {
    result = -EXDEV;  // programs copy then
  } else if (source.place == Place::kFallback) {
    result = sys_access(source.asked, F_OK) == 0 ? -EROFS : -ENOENT;
  }
  if (result == 0 && target.place == Place::kFallback)
    result = copy_up(target, false);
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
  return finish("rename", source.place == Place::kPc ? target : source, result);
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
  return change("mkdir", directory, path, false, true, [&](int at, const char *name) {
    return REAL(mkdirat)(at, name, mode);
  });
}

WRAP(int, mkdir, const char *path, mode_t mode) {
  return vboard_mkdirat(AT_FDCWD, path, mode);
}

WRAP(int, symlinkat, const char *target, int directory, const char *path) {
  if (!on_board())
    return REAL(symlinkat)(target, directory, path);
  return change("symlink", directory, path, false, true, [&](int at, const char *name) {
    return REAL(symlinkat)(target, at, name);
  });
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

// --- Rights, owners, times, sizes ---------------------------------------------------------------

WRAP(int, fchmodat, int directory, const char *path, mode_t mode, int flags) {
  if (!on_board())
    return REAL(fchmodat)(directory, path, mode, flags);
  return change("chmod", directory, path, true, false, [&](int at, const char *name) {
    return REAL(fchmodat)(at, name, mode, flags);
  });
}

WRAP(int, chmod, const char *path, mode_t mode) {
  return vboard_fchmodat(AT_FDCWD, path, mode, 0);
}

WRAP(int, fchownat, int directory, const char *path, uid_t user, gid_t group, int flags) {
  if (!on_board())
    return REAL(fchownat)(directory, path, user, group, flags);
  return change("chown", directory, path, (flags & AT_SYMLINK_NOFOLLOW) == 0, false,
                [&](int at, const char *name) {
                  return REAL(fchownat)(at, name, user, group, flags);
                });
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
  for (int i = 0; times != nullptr && i < 2; i++)
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
  return change("truncate", AT_FDCWD, path, true, false, [&](int, const char *name) {
    return REAL(truncate64)(name, size);
  });
}

#if __SIZEOF_POINTER__ == 8
WRAP_ALIAS(truncate, truncate64);
#else
WRAP(int, truncate, const char *path, __off_t size) {
  return vboard_truncate64(path, size);
}
#endif

// --- The working directory ----------------------------------------------------------------------

WRAP(int, chdir, const char *path) {
  if (!on_board())
    return REAL(chdir)(path);
  Resolved resolved;
  resolve(AT_FDCWD, path, true, resolved);
  if (resolved.place == Place::kMissing)
    return finish("chdir", resolved, -resolved.error);
  int result = REAL(chdir)(host_path(resolved, path));
  if (result == 0)
    set_board_directory(resolved.place == Place::kDirectory ? std::string_view(resolved.asked)
                                                            : std::string_view());
  return result;
}

WRAP(int, fchdir, int fd) {
  int result = REAL(fchdir)(fd);
  if (result == 0 && on_board()) {
    Description *description = acquire(fd);
    set_board_directory(description != nullptr ? std::string_view(description->asked)
                                               : std::string_view());
    if (description != nullptr)
      release(description);
  }
  return result;
}

WRAP(char *, getcwd, char *buffer, size_t size) {
  if (!on_board() || !is_in_board())
    return REAL(getcwd)(buffer, size);
  char name[kPathSize];
  std::string_view directory = working_directory(name, sizeof(name));
  if (buffer == nullptr && size == 0)
    return strdup(name);
  if (directory.size() >= size) {
    errno = size == 0 ? EINVAL : ERANGE;
    return nullptr;
  }
  if (buffer == nullptr)
    buffer = static_cast<char *>(std::malloc(size));
  if (buffer != nullptr)
    std::memcpy(buffer, name, directory.size() + 1);
  return buffer;
}

WRAP(char *, get_current_dir_name, void) {
  if (!on_board() || !is_in_board())
    return REAL(get_current_dir_name)();
  return vboard_getcwd(nullptr, 0);
}

WRAP(int, inotify_add_watch, int fd, const char *path, uint32_t mask) {
  if (!on_board())
    return REAL(inotify_add_watch)(fd, path, mask);
  Resolved resolved;
  resolve(AT_FDCWD, path, true, resolved);
  if (resolved.place == Place::kMissing)
    return finish("inotify_add_watch", resolved, -resolved.error);
  return REAL(inotify_add_watch)(fd, host_path(resolved, path), mask);
}
