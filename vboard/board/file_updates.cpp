#include "vboard/board/file_updates.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace vboard {

namespace {

constexpr std::string_view kUnfinished = ".vboard-new";

// Whether the open file is the one that has the name now.
bool is_current(int fd, const char *path) {
  FileStatus opened;
  FileStatus named;
  return sys_fstat(fd, opened) == 0 && sys_stat(path, named) == 0 && opened.inode == named.inode &&
         opened.filesystem == named.filesystem;
}

int write_all(int fd, std::string_view bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t count =
        sys_pwrite(fd, bytes.data() + done, bytes.size() - done, static_cast<std::int64_t>(done));
    if (count == -EINTR)
      continue;
    if (count <= 0)
      return count == 0 ? -EIO : static_cast<int>(count);
    done += static_cast<std::size_t>(count);
  }
  return 0;
}

// ".NAME.NUMBER.vboard-new" beside the file. No two writers have the same number.
int name_beside(std::string_view path, BoardPath &out) {
  const std::size_t name = path.rfind('/') + 1;
  append_text(out, path.substr(0, name), ".", path.substr(name), ".");
  append_decimal(out, pc_monotonic());
  append_text(out, kUnfinished);
  return out.overflow ? -ENAMETOOLONG : 0;
}

// Writes a new file beside `path` and lets `place` give it the name. `old` is the file that had the
// name, if there was one.
int write_beside(const char *path, const FileStatus *old, std::string_view bytes,
                 int (*place)(const char *from, const char *to)) {
  BoardPath beside;
  int fd = -EEXIST;
  while (fd == -EEXIST) {
    beside = {};
    if (const int error = name_beside(path, beside); error < 0)
      return error;
    fd = sys_open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  }
  if (fd < 0)
    return fd;
  int result = write_all(fd, bytes);
  if (result == 0 && old != nullptr)
    result = sys_fchmod(fd, old->mode & 0777);
  sys_close(fd);
  if (result == 0)
    result = place(beside.c_str(), path);
  if (result < 0)
    sys_unlink(beside.c_str());
  return result;
}

}  // namespace

int hold_file(const char *path, int flags) {
  for (;;) {
    const int fd = board_open(path, O_RDWR | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | flags, 0666);
    if (fd < 0)
      return fd;
    const int locked = sys_flock(fd, LOCK_EX);
    if (locked == 0 && is_current(fd, path))
      return fd;
    // Somebody replaced the file while this process waited for it.
    sys_close(fd);
    if (locked < 0)
      return locked;
  }
}

int overwrite_file(int held, std::string_view bytes) {
  const int result = write_all(held, bytes);
  return result < 0 ? result : sys_ftruncate(held, static_cast<std::int64_t>(bytes.size()));
}

int replace_file(const char *path, int held, std::string_view bytes) {
  FileStatus status;
  int result = sys_stat(path, status, false);
  if (result < 0)
    return result;
  // A link keeps leading to the file: the new one goes where the old one is.
  BoardPath link;
  char target[kPathSize];
  if (S_ISLNK(status.mode)) {
    append_text(link, "/proc/self/fd/");
    append_decimal(link, held);
    const ssize_t length = sys_readlink(link.c_str(), target, sizeof target - 1);
    if (length < 0)
      return static_cast<int>(length);
    target[length] = '\0';
    path = target;
  }
  result = sys_fstat(held, status);
  return result < 0 ? result : write_beside(path, &status, bytes, sys_rename);
}

int store_file(const char *path, std::string_view bytes) {
  for (;;) {
    const int held = hold_file(path);
    if (held >= 0) {
      const int result = replace_file(path, held, bytes);
      sys_close(held);
      return result;
    }
    if (held != -ENOENT)
      return held;
    // A link cannot take the name from a file that somebody else has made meanwhile.
    const int result = write_beside(path, nullptr, bytes, [](const char *from, const char *to) {
      const int linked = sys_link(from, to);
      return linked < 0 ? linked : sys_unlink(from);
    });
    if (result != -EEXIST)
      return result;
  }
}

bool is_unfinished(std::string_view name) {
  return name.starts_with('.') && name.ends_with(kUnfinished);
}

}  // namespace vboard
