// What a write to an attribute of /sys does on the board.

#ifndef VBOARD_BOARD_ATTRIBUTES_H
#define VBOARD_BOARD_ATTRIBUTES_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vboard {

// The value that an attribute's text holds: without its line end and other blanks around it.
inline std::string_view attribute_value(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string_view::npos)
    return {};
  return text.substr(begin, text.find_last_not_of(" \t\r\n") + 1 - begin);
}

// Writes to the attribute `path` ("/sys/...") of the board directory as the kernel would take it: a
// text replaces the old one whole and is kept with one line end, a binary attribute takes the bytes
// at `offset`. Then the wires of sys.wires carry the value on. The bytes taken, or a negated errno:
// ENOENT for an attribute that the board lacks, and whatever the attribute itself refuses with.
ssize_t write_attribute(const char *board, const char *path, const void *data, std::size_t size,
                        std::int64_t offset);

// Whether the driver announces to waiting programs that the attribute `path` has changed to
// `value`.
bool announces_change(const char *board, std::string_view path, std::string_view value);

// mkdir() and rmdir() below /sys, where the kernel makes directories on demand (configfs). 0, or a
// negated errno: EPERM everywhere else.
int make_sys_directory(const char *board, const char *path);
int remove_sys_directory(const char *board, const char *path);

}  // namespace vboard

#endif
