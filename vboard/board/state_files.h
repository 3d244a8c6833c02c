// Whole files of a board directory, for what keeps its state in more than one of them.
//
// Names are those on the board ("/sys/devices/..."). One that leads out of the board, or is too
// long, is -EINVAL. Results are zero or positive, or a negated errno.

#ifndef VBOARD_BOARD_STATE_FILES_H
#define VBOARD_BOARD_STATE_FILES_H

#include <sys/types.h>

#include <cstddef>
#include <span>
#include <string_view>

namespace vboard {

// The bytes read, at most what `out` holds.
ssize_t load_state(const char *board, std::string_view name, std::span<char> out);
// Makes or replaces the file; its directory must be there.
int store_state(const char *board, std::string_view name, std::string_view bytes);
int remove_state(const char *board, std::string_view name);
// 0 also when the directory is there.
int make_state_directory(const char *board, std::string_view name);
int remove_state_directory(const char *board, std::string_view name);
// -EEXIST when something has the new name.
int move_state(const char *board, std::string_view from, std::string_view to);
// A descriptor that holds the directory's exclusive lock until it is closed.
int lock_state_directory(const char *board, std::string_view name);
bool has_state(const char *board, std::string_view name);

}  // namespace vboard

#endif
