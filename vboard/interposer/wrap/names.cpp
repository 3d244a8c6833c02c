// Wraps access eaccess euidaccess faccessat readlink readlinkat __readlink_chk __readlinkat_chk
// realpath __realpath_chk canonicalize_file_name chdir fchdir getcwd get_current_dir_name
// inotify_add_watch.

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/opening.h"
#include "vboard/interposer/core/paths.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

using namespace vboard;

namespace {

int access_at(int directory, const char *path, int mode, bool follow) {
  Resolved resolved;
  resolve(directory, path, follow, resolved);
  if (resolved.place == Place::kMissing)
    return end_by_name("access", resolved, -resolved.error);
  if (resolved.place == Place::kNode)
    return end_by_name("access", resolved, mode & X_OK ? -EACCES : 0);
  return end_by_name("access", resolved, sys_access(host_path(resolved, path), mode));
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

namespace {

// "/proc/self/fd/3" of a modelled descriptor leads to the board's name, not to a file on the PC.
ssize_t board_link(const char *path, char *buffer, std::size_t size) {
  const std::string_view name(path);
  constexpr std::string_view prefixes[] = {"/proc/self/fd/", "/dev/fd/"};
  for (const std::string_view prefix : prefixes) {
    std::int64_t fd;
    if (!name.starts_with(prefix) || !parse_number(name.substr(prefix.size()), fd))
      continue;
    Description *description = fd >= 0 && fd < INT_MAX ? acquire(static_cast<int>(fd)) : nullptr;
    if (description == nullptr)
      return -1;
    std::size_t length = strlen(description->asked);
    length = length < size ? length : size;
    memcpy(buffer, description->asked, length);
    release(description);
    return static_cast<ssize_t>(length);
  }
  return -1;
}

}  // namespace

WRAP(ssize_t, readlinkat, int directory, const char *path, char *buffer, std::size_t size) {
  if (!on_board())
    return REAL(readlinkat)(directory, path, buffer, size);
  Resolved resolved;
  resolve(directory, path, false, resolved);
  if (resolved.place == Place::kPc || resolved.place == Place::kFallback) {
    const ssize_t length = path != nullptr ? board_link(path, buffer, size) : -1;
    if (length >= 0)
      return length;
  }
  switch (resolved.place) {
    case Place::kPc:
      return REAL(readlinkat)(directory, path, buffer, size);
    case Place::kMissing:
      return end_by_name("readlink", resolved, -resolved.error);
    default: {
      const ssize_t length = sys_readlink(host_path(resolved, path), buffer, size);
      end_by_name("readlink", resolved, static_cast<int>(length < 0 ? length : 0));
      return report(length);
    }
  }
}

WRAP(ssize_t, readlink, const char *path, char *buffer, std::size_t size) {
  return vboard_readlinkat(AT_FDCWD, path, buffer, size);
}

WRAP(ssize_t, __readlink_chk, const char *path, char *buffer, std::size_t size, std::size_t room) {
  if (size > room)
    return REAL(__readlink_chk)(path, buffer, size, room);
  return vboard_readlink(path, buffer, size);
}

WRAP(ssize_t, __readlinkat_chk, int directory, const char *path, char *buffer, std::size_t size,
     std::size_t room) {
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
    const ssize_t length = board_link(path, target, sizeof target - 1);
    if (length < 0)
      return REAL(realpath)(path, out);
    target[length] = '\0';
    memcpy(resolved.real, target, static_cast<std::size_t>(length) + 1);
  } else if (resolved.place == Place::kPcByName || resolved.place == Place::kFallback) {
    return REAL(realpath)(resolved.asked, out);
  } else if (resolved.place == Place::kMissing) {
    errno = resolved.error;
    return nullptr;
  }
  if (out == nullptr)
    return strdup(resolved.real);
  memcpy(out, resolved.real, strlen(resolved.real) + 1);
  return out;
}

WRAP(char *, __realpath_chk, const char *path, char *out, std::size_t room) {
  if (room < PATH_MAX)
    return REAL(__realpath_chk)(path, out, room);
  return vboard_realpath(path, out);
}

WRAP(char *, canonicalize_file_name, const char *path) {
  return vboard_realpath(path, nullptr);
}

WRAP(int, chdir, const char *path) {
  if (!on_board())
    return REAL(chdir)(path);
  Resolved resolved;
  resolve(AT_FDCWD, path, true, resolved);
  if (resolved.place == Place::kMissing)
    return end_by_name("chdir", resolved, -resolved.error);
  if (const int owned = take_over(resolved); owned < 0)
    return report(owned);
  const int result = REAL(chdir)(host_path(resolved, path));
  if (result == 0)
    set_board_directory(resolved.place == Place::kDirectory ? std::string_view(resolved.asked)
                                                            : std::string_view());
  return result;
}

WRAP(int, fchdir, int fd) {
  const int result = REAL(fchdir)(fd);
  if (result == 0 && on_board()) {
    Description *description = acquire(fd);
    set_board_directory(description != nullptr ? std::string_view(description->asked)
                                               : std::string_view());
    if (description != nullptr)
      release(description);
  }
  return result;
}

WRAP(char *, getcwd, char *buffer, std::size_t size) {
  if (!on_board() || !is_in_board())
    return REAL(getcwd)(buffer, size);
  char name[kPathSize];
  const std::string_view directory = working_directory(name, sizeof name);
  if (buffer == nullptr && size == 0)
    return strdup(name);
  if (directory.size() >= size) {
    errno = size == 0 ? EINVAL : ERANGE;
    return nullptr;
  }
  if (buffer == nullptr)
    buffer = static_cast<char *>(malloc(size));
  if (buffer != nullptr)
    memcpy(buffer, name, directory.size() + 1);
  return buffer;
}

WRAP(char *, get_current_dir_name, void) {
  if (!on_board() || !is_in_board())
    return REAL(get_current_dir_name)();
  return vboard_getcwd(nullptr, 0);
}

WRAP(int, inotify_add_watch, int fd, const char *path, std::uint32_t mask) {
  if (!on_board())
    return REAL(inotify_add_watch)(fd, path, mask);
  Resolved resolved;
  resolve(AT_FDCWD, path, true, resolved);
  if (resolved.place == Place::kMissing)
    return end_by_name("inotify_add_watch", resolved, -resolved.error);
  // What changes is the board's own copy.
  if (const int owned = take_over(resolved); owned < 0)
    return report(owned);
  return REAL(inotify_add_watch)(fd, host_path(resolved, path), mask);
}
