// Changing a file of the board so that nobody sees half of it: the new one is written beside the
// old one and takes its place by rename().
//
// Who changes a file holds the exclusive lock of the one that has the name now. Results are zero or
// positive, or a negated errno.

#ifndef VBOARD_BOARD_FILE_UPDATES_H
#define VBOARD_BOARD_FILE_UPDATES_H

#include <string_view>

namespace vboard {

// Opens a file of the board for a change, with `flags` beside O_RDWR, and locks it: the descriptor.
// The lock ends with it.
int hold_file(const char *path, int flags = 0);
// Replaces the file at `path`, which `held` holds.
int replace_file(const char *path, int held, std::string_view bytes);
// Writes a held file in place.
int overwrite_file(int held, std::string_view bytes);
// Makes or replaces a file. Its directory must be there.
int store_file(const char *path, std::string_view bytes);

// Whether a name in a directory is that of a file which is not finished, and maybe never will be:
// a run may end at any time.
bool is_unfinished(std::string_view name);

}  // namespace vboard

#endif
