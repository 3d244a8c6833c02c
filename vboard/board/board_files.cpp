#include "vboard/board/board_files.h"

#include "vboard/base/text.h"
#include "vboard/board/board_paths.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace vboard {

namespace {

std::string_view board;
std::string_view below;  // the template; empty without one
std::atomic<std::uint32_t> *whole;

// A path that is put together; `text` is empty when it does not fit.
struct Path {
  char text[kPathSize];
};

bool join(Path &out, std::string_view directory, std::string_view name) {
  TextBuffer path = {out.text, sizeof out.text - 1, 0, false};
  append_text(path, directory);
  append_text(path, name);
  out.text[path.overflow ? 0 : path.length] = '\0';
  return !path.overflow;
}

// What follows the board's directory in a path that may come from the template: "/dev/lcd", or ""
// for the directory itself. Null for every other path.
const char *name_on_board(const char *path) {
  if (below.empty() || whole->load(std::memory_order_acquire) != 0 ||
      strncmp(path, board.data(), board.size()) != 0)
    return nullptr;
  const char *name = path + board.size();
  return *name == '/' || *name == '\0' ? name : nullptr;
}

// One process of the run at a time copies; the lock ends with the descriptor.
int lock_board_files() {
  const int fd = sys_open(board.data(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0)
    return fd;
  const int locked = sys_flock(fd, LOCK_EX);
  if (locked == 0)
    return fd;
  sys_close(fd);
  return locked;
}

}  // namespace

int copy_bytes(int from, int to) {
  char buffer[16384];
  for (;;) {
    const ssize_t size = sys_read(from, buffer, sizeof buffer);
    if (size <= 0)
      return static_cast<int>(size);
    for (ssize_t done = 0; done < size;) {
      const ssize_t count = sys_write(to, buffer + done, static_cast<std::size_t>(size - done));
      if (count < 0)
        return static_cast<int>(count);
      done += count;
    }
  }
}

namespace {

// Under another name first: who reads the file meanwhile must not see half of it.
int copy_file(const char *from, const char *to, unsigned int mode, bool with_content) {
  Path fresh;
  if (!join(fresh, board, "/.copy"))
    return -ENAMETOOLONG;
  const int in = sys_open(from, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (in < 0)
    return in;
  // A template may be installed read-only; a board is for changing.
  const int out = sys_open(fresh.text, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                           (mode & 0777) | S_IRUSR | S_IWUSR);
  int result = out < 0 ? out : with_content ? copy_bytes(in, out) : 0;
  sys_close(in);
  if (out >= 0)
    sys_close(out);
  if (result == 0)
    result = sys_rename(fresh.text, to);
  if (result < 0)
    sys_unlink(fresh.text);
  return result;
}

// Copies one file, or makes one directory, that the board may have by now. Under the lock.
int copy_entry(const char *from, const char *to, bool with_content) {
  FileStatus status;
  if (sys_stat(to, status, false) == 0)
    return 0;
  const int result = sys_stat(from, status, false);
  if (result < 0)
    return result;
  return S_ISDIR(status.mode) ? sys_mkdir(to, (status.mode & 0777) | S_IRWXU)
                              : copy_file(from, to, status.mode, with_content);
}

// Makes the directories above `name` as far as the template has them.
int copy_parents(std::string_view name) {
  for (std::size_t end = name.find('/', 1); end != std::string_view::npos;
       end = name.find('/', end + 1)) {
    Path from;
    Path to;
    if (!join(from, below, name.substr(0, end)) || !join(to, board, name.substr(0, end)))
      return -ENAMETOOLONG;
    const int result = copy_entry(from.text, to.text, false);
    if (result < 0)
      return result == -ENOENT ? 0 : result;
  }
  return 0;
}

// Calls `visit` with the names in one directory of the kernel's. False when a visit ended it.
template <typename Visit>
bool each_entry(const char *directory, Visit visit) {
  const int fd = sys_open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0)
    return true;
  bool goes_on = true;
  alignas(8) char entries[2048];
  for (ssize_t size; goes_on && (size = sys_getdents(fd, entries, sizeof entries)) > 0;) {
    for (ssize_t at = 0; at < size && goes_on;) {
      // struct linux_dirent64: inode 8, offset 8, length of the entry 2, type 1, name.
      std::uint16_t entry_size;
      memcpy(&entry_size, entries + at + 16, sizeof entry_size);
      const char *name = entries + at + 19;
      if (strcmp(name, ".") != 0 && strcmp(name, "..") != 0)
        goes_on = visit(name);
      at += entry_size;
    }
  }
  sys_close(fd);
  return goes_on;
}

int copy_tree(std::string_view name) {
  Path directory;
  if (!join(directory, below, name))
    return -ENAMETOOLONG;
  int result = 0;
  each_entry(directory.text, [&](const char *entry) {
    Path inside;
    Path from;
    Path to;
    if (!join(inside, name, "/") || !join(inside, Path(inside).text, entry) ||
        !join(from, below, inside.text) || !join(to, board, inside.text))
      result = -ENAMETOOLONG;
    else
      result = copy_entry(from.text, to.text, true);
    FileStatus status;
    if (result == 0 && sys_stat(from.text, status, false) == 0 && S_ISDIR(status.mode))
      result = copy_tree(inside.text);
    return result == 0;
  });
  return result;
}

bool allows_writing(int flags) {
  return (flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0;
}

}  // namespace

void set_template(const char *directory, const char *template_directory,
                  std::atomic<std::uint32_t> *is_whole) {
  board = directory;
  below = template_directory;
  whole = is_whole;
}

bool template_path(const char *path, char *out, std::size_t room) {
  const char *name = name_on_board(path);
  if (name == nullptr)
    return false;
  TextBuffer text = {out, room - 1, 0, false};
  append_text(text, below);
  append_text(text, name);
  out[text.length] = '\0';
  return !text.overflow;
}

int board_open(const char *path, int flags, unsigned int mode) {
  Path file;
  if (!template_path(path, file.text, sizeof file.text))
    return sys_open(path, flags, mode);
  if (allows_writing(flags) || (flags & O_DIRECTORY)) {
    const int result = own_board_file(path, (flags & O_TRUNC) == 0);
    return result < 0 ? result : sys_open(path, flags, mode);
  }
  const int fd = sys_open(path, flags);
  return fd == -ENOENT ? sys_open(file.text, flags) : fd;
}

int board_stat(const char *path, FileStatus &out, bool follow) {
  int result = sys_stat(path, out, follow);
  Path file;
  if (result == -ENOENT && template_path(path, file.text, sizeof file.text))
    result = sys_stat(file.text, out, follow);
  return result;
}

ssize_t board_readlink(const char *path, char *buffer, std::size_t size) {
  ssize_t result = sys_readlink(path, buffer, size);
  Path file;
  if (result == -ENOENT && template_path(path, file.text, sizeof file.text))
    result = sys_readlink(file.text, buffer, size);
  return result;
}

int own_board_file(const char *path, bool with_content) {
  Path file;
  FileStatus status;
  if (!template_path(path, file.text, sizeof file.text) || sys_stat(path, status, false) == 0)
    return 0;
  const int lock = lock_board_files();
  if (lock < 0)
    return lock;
  int result = 0;
  // The template may have gone out of use while this process waited.
  if (const char *name = name_on_board(path)) {
    result = copy_parents(name);
    if (result == 0)
      result = copy_entry(file.text, path, with_content);
    if (result == -ENOENT)
      result = 0;
  }
  sys_close(lock);
  return result;
}

int prepare_removal(const char *path) {
  Path file;
  FileStatus status;
  if (!template_path(path, file.text, sizeof file.text) || sys_stat(file.text, status, false) < 0)
    return 0;
  const int lock = lock_board_files();
  if (lock < 0)
    return lock;
  int result = 0;
  if (whole->load(std::memory_order_relaxed) == 0) {
    result = copy_tree("");
    if (result == 0)
      whole->store(1, std::memory_order_release);
  }
  sys_close(lock);
  return result;
}

void each_board_entry(const char *path, bool (*visit)(const char *name, void *context),
                      void *context) {
  Path file;
  const bool has_template = template_path(path, file.text, sizeof file.text);
  if (!each_entry(path, [&](const char *name) { return visit(name, context); }) || !has_template)
    return;
  each_entry(file.text, [&](const char *name) {
    Path own;
    FileStatus status;
    if (!join(own, path, "/") || !join(own, Path(own).text, name) ||
        sys_stat(own.text, status, false) == 0)
      return true;
    return visit(name, context);
  });
}

}  // namespace vboard
