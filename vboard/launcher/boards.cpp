#include "vboard/launcher/boards.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/file_updates.h"
#include "vboard/board/gyro_chips.h"
#include "vboard/board/node.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace vboard {

namespace {

constexpr std::string_view kBoardFormat = "vboard board, format 1";

// "DIR/NAME"; false (and an error message) when it is too long.
bool join_path(BoardPath &out, const char *directory, const char *name) {
  append_text(out, directory, "/", name);
  if (out.overflow)
    fail("the name is too long: %s", out.c_str());
  return !out.overflow;
}

// Copies the bytes of a file without its holes: the memory of a board is a large file of few bytes.
// 0, or the errno.
int copy_content(int in, int out, off_t size) {
  char buffer[65536];
  for (off_t at = 0; (at = lseek(in, at, SEEK_DATA)) >= 0;) {
    const off_t hole = lseek(in, at, SEEK_HOLE);
    while (at < hole) {
      const auto piece = static_cast<std::size_t>(std::min<off_t>(hole - at, sizeof buffer));
      const ssize_t count = pread(in, buffer, piece, at);
      if (count == 0)
        break;
      if (count < 0)
        return errno;
      const ssize_t written = pwrite(out, buffer, static_cast<std::size_t>(count), at);
      if (written != count)
        return written < 0 ? errno : ENOSPC;
      at += count;
    }
    if (at < hole)
      break;
  }
  return ftruncate(out, size) < 0 ? errno : 0;
}

int copy_file(const char *from, const char *to, const struct stat &status) {
  const int in = open(from, O_RDONLY | O_CLOEXEC);
  if (in < 0)
    return fail("%s: %s", from, strerror(errno));
  // Templates may be installed read-only; a board is for changing.
  const int out = open(to, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, (status.st_mode & 0777) | 0600);
  if (out < 0) {
    close(in);
    return fail("%s: %s", to, strerror(errno));
  }
  const int error = copy_content(in, out, status.st_size);
  close(in);
  close(out);
  return error != 0 ? fail("%s: %s", to, strerror(error)) : 0;
}

int copy_tree(const char *from, const char *to);

int copy_entry(const char *from, const char *to) {
  struct stat status;
  if (lstat(from, &status) < 0)
    return fail("%s: %s", from, strerror(errno));
  if (S_ISDIR(status.st_mode)) {
    if (mkdir(to, 0777) < 0 && errno != EEXIST)
      return fail("%s: %s", to, strerror(errno));
    return copy_tree(from, to);
  }
  if (S_ISLNK(status.st_mode)) {
    char target[kFileName];
    const ssize_t length = readlink(from, target, sizeof target - 1);
    if (length < 0)
      return fail("%s: %s", from, strerror(errno));
    target[length] = '\0';
    return symlink(target, to) < 0 ? fail("%s: %s", to, strerror(errno)) : 0;
  }
  // Sockets and pipes belong to the programs of a run.
  return S_ISREG(status.st_mode) ? copy_file(from, to, status) : 0;
}

int copy_tree(const char *from, const char *to) {
  DIR *directory = opendir(from);
  if (directory == nullptr)
    return fail("%s: %s", from, strerror(errno));
  int result = 0;
  while (dirent *entry = result == 0 ? readdir(directory) : nullptr) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0 ||
        is_unfinished(entry->d_name))
      continue;
    BoardPath source;
    BoardPath target;
    if (!join_path(source, from, entry->d_name) || !join_path(target, to, entry->d_name))
      result = kFailed;
    else
      result = copy_entry(source.c_str(), target.c_str());
  }
  closedir(directory);
  return result;
}

bool is_empty(const char *path) {
  DIR *directory = opendir(path);
  if (directory == nullptr)
    return false;
  int entries = 0;
  while (readdir(directory) != nullptr)
    ++entries;
  closedir(directory);
  return entries <= 2;
}

// A place for a new board: a directory that is made, or an empty one.
int make_directory(const char *directory) {
  if (mkdir(directory, 0777) == 0)
    return 0;
  if (errno != EEXIST)
    return fail("%s: %s", directory, strerror(errno));
  return is_empty(directory) ? 0 : fail("%s: exists and is not an empty directory", directory);
}

int set_gyro(const char *board, const char *chip) {
  BoardPath file;
  if (!locate(board, "dev/gyro", file))
    return kFailed;
  const int result = update_node(
      file.c_str(),
      [](Node &node, void *context) {
        set_node_text(node, "chip", static_cast<const char *>(context));
      },
      const_cast<char *>(chip));
  return result < 0 ? fail("%s: %s", file.c_str(), strerror(-result)) : 0;
}

}  // namespace

int fail(const char *format, ...) {
  char text[8192];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  fflush(stdout);
  fprintf(stderr, "vboard: %s\n", text);
  return kFailed;
}

bool locate(const char *board, std::string_view name, BoardPath &out) {
  const int result = find_board_file(board, name, out);
  if (result < 0)
    fail("%s: %.*s: %s", board, static_cast<int>(name.size()), name.data(), strerror(-result));
  return result == 0;
}

bool find_own_file(const char *const *places, std::size_t count, char *out) {
  char self[kFileName];
  const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
  if (length <= 0)
    return false;
  self[length] = '\0';
  *strrchr(self, '/') = '\0';
  for (std::size_t i = 0; i < count; ++i) {
    BoardPath path;
    char found[PATH_MAX];
    if (join_path(path, self, places[i]) && realpath(path.c_str(), found) != nullptr)
      return copy_text({out, kFileName}, found);
  }
  return false;
}

int open_board(const char *directory, char *out) {
  char absolute[PATH_MAX];
  if (realpath(directory, absolute) == nullptr)
    return fail("%s: %s", directory, strerror(errno));
  BoardPath file;
  if (!locate(absolute, "board", file))
    return kFailed;
  Node content;
  const int result = load_node(file.c_str(), content);
  if (result < 0)
    return fail("%s: not a board directory (%s)", directory, strerror(-result));
  std::string_view text(content.text, content.length);
  std::string_view line;
  take_line(text, line);
  if (trimmed(line) != kBoardFormat)
    return fail("%s: a board of a format that this vboard does not know", directory);
  return copy_text({out, kFileName}, absolute) ? 0 : fail("%s: the name is too long", directory);
}

int find_template(char *out) {
  constexpr const char *places[] = {"../share/vboard/template",
                                    VBOARD_TO_DATADIR "/vboard/template"};
  if (!find_own_file(places, std::size(places), out))
    return fail("the template of a board is not where vboard is installed");
  return 0;
}

int make_board(const char *directory, const char *gyro) {
  if (gyro != nullptr && !is_gyro_chip(gyro)) {
    fail("no such motion sensor: %s", gyro);
    fprintf(stderr, "known:");
    for (const GyroChip &chip : gyro_chips())
      fprintf(stderr, " %s", chip.name);
    fprintf(stderr, "\n");
    return kFailed;
  }
  char from[kFileName];
  int result = find_template(from);
  if (result == 0)
    result = make_directory(directory);
  if (result == 0)
    result = copy_tree(from, directory);
  if (result == 0 && gyro != nullptr)
    result = set_gyro(directory, gyro);
  return result;
}

int make_bare_board(const char *directory) {
  int result = make_directory(directory);
  for (const char *folder : {"dev", "media", "net", "sys", "proc", "etc"}) {
    BoardPath path;
    if (result == 0 && !join_path(path, directory, folder))
      result = kFailed;
    if (result == 0 && mkdir(path.c_str(), 0777) < 0)
      result = fail("%s: %s", path.c_str(), strerror(errno));
  }
  BoardPath file;
  if (result == 0 && !join_path(file, directory, "board"))
    result = kFailed;
  if (result != 0)
    return result;
  FixedText<64> text;
  append_text(text, kBoardFormat, "\n");
  const int error = store_file(file.c_str(), text.view());
  return error < 0 ? fail("%s: %s", file.c_str(), strerror(-error)) : 0;
}

int copy_board(const char *directory, const char *other) {
  char from[kFileName];
  int result = open_board(other, from);
  const bool is_new = access(directory, F_OK) < 0;
  if (result == 0)
    result = make_directory(directory);
  if (result != 0)
    return result;
  char to[PATH_MAX];
  if (realpath(directory, to) == nullptr)
    return fail("%s: %s", directory, strerror(errno));
  // It would hold a copy of itself.
  const std::string_view inner(to);
  if (inner.starts_with(from) && inner.substr(strlen(from)).starts_with('/')) {
    if (is_new)
      rmdir(directory);
    return fail("%s: lies in the board %s", directory, other);
  }
  return copy_tree(from, directory);
}

bool find_node_file(const char *board, const char *node, BoardPath &out) {
  std::string_view name = node;
  BoardPath interface;
  if (name.starts_with("net:")) {
    append_text(interface, "net/", name.substr(4));
    name = interface.view();
  }
  // The second is the file of a storage device that is switched off.
  for (const char *folder : {"", "unpowered/"}) {
    BoardPath file;
    append_text(file, folder, name);
    struct stat status;
    if (find_board_file(board, file.view(), out) == 0 && stat(out.c_str(), &status) == 0 &&
        S_ISREG(status.st_mode))
      return true;
  }
  fail("%s: the board has no such node", node);
  return false;
}

}  // namespace vboard
