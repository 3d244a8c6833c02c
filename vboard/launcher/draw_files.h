// Reading a board directory for the drawings.

#ifndef VBOARD_LAUNCHER_DRAW_FILES_H
#define VBOARD_LAUNCHER_DRAW_FILES_H

#include "vboard/board/node.h"

#include <dirent.h>

#include <cstddef>
#include <string_view>

namespace vboard {

// board/name; false when it does not fit.
bool board_file(const char *board, std::string_view name, char (&out)[1024]);

// Up to `size` bytes of a file of the board; the bytes read, or a negated errno.
std::ptrdiff_t read_board_file(const char *board, std::string_view name, void *out,
                               std::size_t size);

// Up to `size` bytes of a node's medium; the bytes read, or a negated errno (ENOENT without one).
std::ptrdiff_t read_medium_of(const char *board, const Node &node, void *out, std::size_t size);

// The names in a folder of the board, in order, numbers by their value; the number of them, 0 for a
// folder that is missing. free_names() takes them back.
int list_folder(const char *board, const char *folder, dirent **&names);
void free_names(dirent **names, int count);

}  // namespace vboard

#endif
