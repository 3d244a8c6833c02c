#include "vboard/board/board_files.h"

#include "vboard/board/file_updates.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>

namespace vboard {

int find_board_file(std::string_view board, std::string_view name, BoardPath &out) {
  out = {};
  bool is_below = false;
  append_text(out, board);
  while (!name.empty()) {
    const std::string_view part = name.substr(0, name.find('/'));
    name.remove_prefix(std::min(part.size() + 1, name.size()));
    if (part == "..")
      return -EINVAL;
    if (part.empty() || part == ".")
      continue;
    append_text(out, "/", part);
    is_below = true;
  }
  if (out.overflow)
    return -ENAMETOOLONG;
  return is_below ? 0 : -EINVAL;
}

int find_medium(std::string_view board, std::string_view name, BoardPath &out) {
  out = {};
  if (name.empty())
    return -ENOENT;
  if (name.find('/') != std::string_view::npos || name[0] == '.')
    return -EINVAL;
  append_text(out, board, "/media/", name);
  return out.overflow ? -ENAMETOOLONG : 0;
}

int find_sibling(std::string_view board, std::string_view attribute, std::string_view name,
                 BoardPath &out) {
  BoardPath other;
  append_text(other, attribute.substr(0, attribute.rfind('/') + 1), name);
  return other.overflow ? -ENAMETOOLONG : find_board_file(board, other.view(), out);
}

namespace {

std::string_view root;
std::string_view below;  // the template; empty without one
std::atomic<std::uint32_t> *whole;

template <typename... Pieces>
bool join(BoardPath &out, const Pieces &...pieces) {
  append_text(out, pieces...);
  return !out.overflow;
}

// What follows the board's directory in a path that may come from the template: "/dev/lcd", or ""
// for the directory itself. Null for every other path.
const char *name_on_board(const char *path) {
  if (below.empty() || whole->load(std::memory_order_acquire) != 0 ||
      strncmp(path, root.data(), root.size()) != 0)
    return nullptr;
  const char *name = path + root.size();
  return *name == '/' || *name == '\0' ? name : nullptr;
}

// A descriptor that holds the directory's exclusive lock until it is closed.
int lock_directory(const char *path) {
  const int fd = board_open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
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
  BoardPath fresh;
  if (!join(fresh, root, "/.copy"))
    return -ENAMETOOLONG;
  const int in = sys_open(from, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (in < 0)
    return in;
  // A template may be installed read-only; a board is for changing.
  const int out = sys_open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                           (mode & 0777) | S_IRUSR | S_IWUSR);
  int result = out < 0 ? out : with_content ? copy_bytes(in, out) : 0;
  sys_close(in);
  if (out >= 0)
    sys_close(out);
  if (result == 0)
    result = sys_rename(fresh.c_str(), to);
  if (result < 0)
    sys_unlink(fresh.c_str());
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
    BoardPath from;
    BoardPath to;
    if (!join(from, below, name.substr(0, end)) || !join(to, root, name.substr(0, end)))
      return -ENAMETOOLONG;
    const int result = copy_entry(from.c_str(), to.c_str(), false);
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
      if (strcmp(name, ".") != 0 && strcmp(name, "..") != 0 && !is_unfinished(name))
        goes_on = visit(name);
      at += entry_size;
    }
  }
  sys_close(fd);
  return goes_on;
}

int copy_tree(std::string_view name) {
  BoardPath directory;
  if (!join(directory, below, name))
    return -ENAMETOOLONG;
  int result = 0;
  each_entry(directory.c_str(), [&](const char *entry) {
    BoardPath inside;
    BoardPath from;
    BoardPath to;
    if (!join(inside, name, "/", entry) || !join(from, below, inside.view()) ||
        !join(to, root, inside.view()))
      result = -ENAMETOOLONG;
    else
      result = copy_entry(from.c_str(), to.c_str(), true);
    FileStatus status;
    if (result == 0 && sys_stat(from.c_str(), status, false) == 0 && S_ISDIR(status.mode))
      result = copy_tree(inside.view());
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
  root = directory;
  below = template_directory;
  whole = is_whole;
}

bool template_path(const char *path, char *out, std::size_t room) {
  const char *name = name_on_board(path);
  if (name == nullptr)
    return false;
  BoardPath file;
  return join(file, below, name) && copy_text({out, room}, file.view());
}

int board_open(const char *path, int flags, unsigned int mode) {
  char file[kPathSize];
  if (!template_path(path, file, sizeof file))
    return sys_open(path, flags, mode);
  if (allows_writing(flags) || (flags & O_DIRECTORY)) {
    const int result = own_board_file(path, (flags & O_TRUNC) == 0);
    return result < 0 ? result : sys_open(path, flags, mode);
  }
  const int fd = sys_open(path, flags);
  return fd == -ENOENT ? sys_open(file, flags) : fd;
}

int board_stat(const char *path, FileStatus &out, bool follow) {
  int result = sys_stat(path, out, follow);
  char file[kPathSize];
  if (result == -ENOENT && template_path(path, file, sizeof file))
    result = sys_stat(file, out, follow);
  return result;
}

ssize_t board_readlink(const char *path, char *buffer, std::size_t size) {
  ssize_t result = sys_readlink(path, buffer, size);
  char file[kPathSize];
  if (result == -ENOENT && template_path(path, file, sizeof file))
    result = sys_readlink(file, buffer, size);
  return result;
}

int own_board_file(const char *path, bool with_content) {
  char file[kPathSize];
  FileStatus status;
  if (!template_path(path, file, sizeof file) || sys_stat(path, status, false) == 0)
    return 0;
  // One process of the run at a time copies.
  const int lock = lock_directory(root.data());
  if (lock < 0)
    return lock;
  int result = 0;
  // The template may have gone out of use while this process waited.
  if (const char *name = name_on_board(path)) {
    result = copy_parents(name);
    if (result == 0)
      result = copy_entry(file, path, with_content);
    if (result == -ENOENT)
      result = 0;
  }
  sys_close(lock);
  return result;
}

int prepare_removal(const char *path) {
  char file[kPathSize];
  FileStatus status;
  if (!template_path(path, file, sizeof file) || sys_stat(file, status, false) < 0)
    return 0;
  // One process of the run at a time copies.
  const int lock = lock_directory(root.data());
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
  char file[kPathSize];
  const bool has_template = template_path(path, file, sizeof file);
  if (!each_entry(path, [&](const char *name) { return visit(name, context); }) || !has_template)
    return;
  each_entry(file, [&](const char *name) {
    BoardPath own;
    FileStatus status;
    if (!join(own, path, "/", name) || sys_stat(own.c_str(), status, false) == 0)
      return true;
    return visit(name, context);
  });
}

// Whole files by their names.

namespace {

// Calls a function of the kernel's with the file's name on the PC.
template <typename Call>
int with_file(std::string_view board, std::string_view name, Call call) {
  BoardPath file;
  const int found = find_board_file(board, name, file);
  return found < 0 ? found : call(file.c_str());
}

}  // namespace

ssize_t load_state(std::string_view board, std::string_view name, std::span<char> out) {
  const int fd = with_file(board, name,
                           [](const char *path) { return board_open(path, O_RDONLY | O_CLOEXEC); });
  if (fd < 0)
    return fd;
  sys_flock(fd, LOCK_SH);
  const ssize_t length = sys_pread(fd, out.data(), out.size(), 0);
  sys_close(fd);
  return length;
}

int store_state(std::string_view board, std::string_view name, std::string_view bytes) {
  return with_file(board, name, [&](const char *path) {
    if (!name.starts_with("/sys/"))
      return store_file(path, bytes);
    const int held = hold_file(path, O_CREAT);
    if (held < 0)
      return held;
    const int result = overwrite_file(held, bytes);
    sys_close(held);
    return result;
  });
}

int remove_state(std::string_view board, std::string_view name) {
  return with_file(board, name, [](const char *path) {
    int const result = prepare_removal(path);
    return result < 0 ? result : sys_unlink(path);
  });
}

int make_state_directory(std::string_view board, std::string_view name) {
  const int result = with_file(board, name, [](const char *path) {
    int const owned = own_board_file(path);
    return owned < 0 ? owned : sys_mkdir(path, 0777);
  });
  return result == -EEXIST ? 0 : result;
}

int remove_state_directory(std::string_view board, std::string_view name) {
  return with_file(board, name, [](const char *path) {
    int const result = prepare_removal(path);
    return result < 0 ? result : sys_rmdir(path);
  });
}

int move_state(std::string_view board, std::string_view from, std::string_view to) {
  BoardPath target;
  if (const int error = find_board_file(board, to, target); error < 0)
    return error;
  if (has_state(board, to))
    return -EEXIST;
  return with_file(board, from, [&](const char *path) {
    int result = own_board_file(path);
    if (result == 0)
      result = prepare_removal(path);
    if (result == 0)
      result = own_board_file(target.c_str());  // its directories
    if (result < 0)
      return result;
    // Nobody replaces the file at its old name after it has gone from there.
    const int held = hold_file(path);
    result = sys_rename(path, target.c_str());
    if (held >= 0)
      sys_close(held);
    return result;
  });
}

int lock_state_directory(std::string_view board, std::string_view name) {
  return with_file(board, name, lock_directory);
}

bool has_state(std::string_view board, std::string_view name) {
  return with_file(board, name, [](const char *path) {
           FileStatus status;
           return board_stat(path, status);
         }) == 0;
}

}  // namespace vboard
