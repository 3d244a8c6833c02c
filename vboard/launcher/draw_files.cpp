#include "vboard/launcher/draw_files.h"

#include "vboard/base/kernel.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>

namespace vboard {

bool board_file(const char *board, std::string_view name, char (&out)[1024]) {
  const int length =
      snprintf(out, sizeof out, "%s/%.*s", board, static_cast<int>(name.size()), name.data());
  return length > 0 && static_cast<std::size_t>(length) < sizeof out;
}

std::ptrdiff_t read_board_file(const char *board, std::string_view name, void *out,
                               std::size_t size) {
  char path[1024];
  if (!board_file(board, name, path))
    return -ENAMETOOLONG;
  const int fd = sys_open(path, O_RDONLY | O_CLOEXEC);
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

std::ptrdiff_t read_medium_of(const char *board, const Node &node, void *out, std::size_t size) {
  const std::string_view medium = node_text(node, "medium");
  if (medium.empty())
    return -ENOENT;
  char name[512];
  const int length =
      snprintf(name, sizeof name, "media/%.*s", static_cast<int>(medium.size()), medium.data());
  if (length < 0 || static_cast<std::size_t>(length) >= sizeof name)
    return -ENAMETOOLONG;
  return read_board_file(board, name, out, size);
}

int list_folder(const char *board, const char *folder, dirent **&names) {
  char path[1024];
  auto visible = [](const dirent *entry) { return entry->d_name[0] == '.' ? 0 : 1; };
  names = nullptr;
  const int count =
      board_file(board, folder, path) ? scandir(path, &names, visible, versionsort) : 0;
  return std::max(count, 0);
}

void free_names(dirent **names, int count) {
  for (int i = 0; i < count; ++i)
    free(names[i]);
  free(names);
}

}  // namespace vboard
