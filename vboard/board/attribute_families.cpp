#include "vboard/board/attribute_families.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/file_updates.h"

#include <fcntl.h>

namespace vboard {

int store_value(const char *board, std::string_view path, std::string_view value) {
  BoardPath file;
  if (const int error = find_board_file(board, path, file); error < 0)
    return error;
  const int fd = hold_file(file.c_str());
  if (fd < 0)
    return fd;
  FixedText<kPageSize + 2> text;
  append_text(text, value.substr(0, kPageSize), value.empty() ? "" : "\n");
  const int result = overwrite_file(fd, text.view());
  sys_close(fd);
  return result;
}

std::string_view load_value(const char *board, std::string_view path, char (&text)[kPageSize]) {
  BoardPath file;
  if (find_board_file(board, path, file) < 0)
    return {};
  const int fd = board_open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return {};
  const ssize_t length = sys_pread(fd, text, sizeof text, 0);
  sys_close(fd);
  return length > 0 ? attribute_value({text, static_cast<std::size_t>(length)})
                    : std::string_view();
}

BoardPath sibling(std::string_view path, std::string_view name) {
  BoardPath other;
  append_text(other, path.substr(0, path.rfind('/') + 1), name);
  return other;
}

int store_decimal(const char *board, std::string_view path, std::int64_t value) {
  FixedText<24> text;
  append_decimal(text, value);
  return store_value(board, path, text.view());
}

}  // namespace vboard
