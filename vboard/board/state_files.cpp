#include "vboard/board/state_files.h"

#include "vboard/base/kernel.h"
#include "vboard/board/board_files.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>

namespace vboard {
namespace {

struct FilePath {
  char text[1024];
};

bool find_file(const char *board, std::string_view name, FilePath &out) {
  const int length = snprintf(out.text, sizeof out.text, "%s/%.*s", board,
                              static_cast<int>(name.size()), name.data());
  return length > 0 && static_cast<std::size_t>(length) < sizeof out.text &&
         name.find("..") == std::string_view::npos;
}

// Calls a function of the kernel's with the file's name on the PC.
template <typename Call>
int with_file(const char *board, std::string_view name, Call call) {
  FilePath file;
  return find_file(board, name, file) ? call(file.text) : -EINVAL;
}

}  // namespace

ssize_t load_state(const char *board, std::string_view name, std::span<char> out) {
  const int fd = with_file(board, name,
                           [](const char *path) { return board_open(path, O_RDONLY | O_CLOEXEC); });
  if (fd < 0)
    return fd;
  sys_flock(fd, LOCK_SH);
  const ssize_t length = sys_pread(fd, out.data(), out.size(), 0);
  sys_close(fd);
  return length;
}

int store_state(const char *board, std::string_view name, std::string_view bytes) {
  const int fd = with_file(board, name, [](const char *path) {
    return board_open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  });
  if (fd < 0)
    return fd;
  sys_flock(fd, LOCK_EX);
  ssize_t result = sys_pwrite(fd, bytes.data(), bytes.size(), 0);
  if (result >= 0)
    result = sys_ftruncate(fd, static_cast<std::int64_t>(bytes.size()));
  sys_close(fd);
  return result < 0 ? static_cast<int>(result) : 0;
}

int remove_state(const char *board, std::string_view name) {
  return with_file(board, name, [](const char *path) {
    int const result = prepare_removal(path);
    return result < 0 ? result : sys_unlink(path);
  });
}

int make_state_directory(const char *board, std::string_view name) {
  const int result = with_file(board, name, [](const char *path) {
    int const owned = own_board_file(path);
    return owned < 0 ? owned : sys_mkdir(path, 0777);
  });
  return result == -EEXIST ? 0 : result;
}

int remove_state_directory(const char *board, std::string_view name) {
  return with_file(board, name, [](const char *path) {
    int const result = prepare_removal(path);
    return result < 0 ? result : sys_rmdir(path);
  });
}

int move_state(const char *board, std::string_view from, std::string_view to) {
  FilePath file;
  if (!find_file(board, to, file))
    return -EINVAL;
  if (has_state(board, to))
    return -EEXIST;
  return with_file(board, from, [&](const char *path) {
    int result = own_board_file(path);
    if (result == 0)
      result = prepare_removal(path);
    if (result == 0)
      result = own_board_file(file.text);  // its directories
    return result < 0 ? result : sys_rename(path, file.text);
  });
}

int lock_state_directory(const char *board, std::string_view name) {
  const int fd = with_file(board, name, [](const char *path) {
    return board_open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  });
  if (fd < 0)
    return fd;
  const int locked = sys_flock(fd, LOCK_EX);
  if (locked == 0)
    return fd;
  sys_close(fd);
  return locked;
}

bool has_state(const char *board, std::string_view name) {
  return with_file(board, name, [](const char *path) {
           FileStatus status;
           return board_stat(path, status);
         }) == 0;
}

}  // namespace vboard
