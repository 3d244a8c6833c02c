// Reading a board directory for the drawings.

#ifndef VBOARD_LAUNCHER_DRAW_FILES_H
#define VBOARD_LAUNCHER_DRAW_FILES_H
#include "vboard/board/node.h"

#include <dirent.h>

#include <cstddef>
#include <string_view>

namespace vboard {

// A text of the board that is read as a node file is: 0 or a negated errno.
int load_board_text(const char *board, std::string_view name, Node &out);

// Up to `size` bytes of a file of the board; the bytes read, or a negated errno.
std::ptrdiff_t read_board_file(const char *board, std::string_view name, void *out,
                               std::size_t size);

// Up to `size` bytes of a medium by the name that a setting gives it; the bytes read, or a negated
// errno (ENOENT without a name).
std::ptrdiff_t read_medium(const char *board, std::string_view name, void *out, std::size_t size);

// The names in a folder of the board, in order, numbers by their value; the number of them, 0 for a
// folder that is missing. free_names() takes them back.
int list_folder(const char *board, const char *folder, dirent **&names);
void free_names(dirent **names, int count);

}  // namespace vboard

#endif
