#include "vboard/launcher/draw_files.h"

#include "vboard/base/kernel.h"
#include "vboard/board/board_files.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>

namespace vboard {

namespace {

std::ptrdiff_t read_file(const BoardPath &path, void *out, std::size_t size) {
  const int fd = sys_open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return fd;
  std::size_t done = 0;
  std::ptrdiff_t result = 0;
  while (done < size) {
    result = sys_pread(fd, static_cast<char *>(out) + done, size - done,
                       static_cast<std::int64_t>(done));
    if (result <= 0)
      break;
    done += static_cast<std::size_t>(result);
  }
  sys_close(fd);
  return result < 0 ? result : static_cast<std::ptrdiff_t>(done);
}

}  // namespace

int load_board_text(const char *board, std::string_view name, Node &out) {
  BoardPath path;
  const int error = find_board_file(board, name, path);
  return error < 0 ? error : load_node(path.c_str(), out);
}

std::ptrdiff_t read_board_file(const char *board, std::string_view name, void *out,
                               std::size_t size) {
  BoardPath path;
  const int error = find_board_file(board, name, path);
  return error < 0 ? error : read_file(path, out, size);
}

std::ptrdiff_t read_medium(const char *board, std::string_view name, void *out, std::size_t size) {
  BoardPath path;
  const int error = find_medium(board, name, path);
  return error < 0 ? error : read_file(path, out, size);
}

int list_folder(const char *board, const char *folder, dirent **&names) {
  BoardPath path;
  auto visible = [](const dirent *entry) { return entry->d_name[0] == '.' ? 0 : 1; };
  names = nullptr;
  const int count = find_board_file(board, folder, path) == 0
                        ? scandir(path.c_str(), &names, visible, versionsort)
                        : 0;
  return std::max(count, 0);
}

void free_names(dirent **names, int count) {
  for (int i = 0; i < count; ++i)
    free(names[i]);
  free(names);
}

}  // namespace vboard
