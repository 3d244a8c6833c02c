// The files of a board by their paths below its directory.
//
// A board that "vboard new" made holds all of its files. The board of a run without --board begins
// as an empty directory over the template of a board: what it lacks is read from the template in
// place, and a file is copied into the directory before it is first written. Where something of the
// template is to be removed or renamed, the whole template is copied first, and the board is on its
// own from then on.
//
// Every path here is absolute. One outside of the board's directory, and any path while the board
// has no template, is simply the kernel's. Results are zero or positive, or a negated errno.

#ifndef VBOARD_BOARD_BOARD_FILES_H
#define VBOARD_BOARD_BOARD_FILES_H

#include "vboard/base/kernel.h"

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace vboard {

// Puts the board in `directory` over its template. `is_whole` becomes 1 when the board does
// not need the template any more; all processes of a run share it. The texts must stay.
void set_template(const char *directory, const char *template_directory,
                  std::atomic<std::uint32_t> *is_whole);

// open(). A file of the template is copied first when the flags allow writing; a directory of the
// template is made in the board when it is opened.
int board_open(const char *path, int flags, unsigned int mode = 0);
int board_stat(const char *path, FileStatus &out, bool follow = true);
ssize_t board_readlink(const char *path, char *buffer, std::size_t size);

// The name that `path` has in the template; false when it cannot come from there. `room` bytes at
// `out`.
bool template_path(const char *path, char *out, std::size_t room);

// Copies what is left of one open file to another. 0, or a negated errno with some of it copied.
int copy_bytes(int from, int to);

// Makes `path`, or its directories when it does not exist yet, the board's own. 0 as well when
// there is nothing in the template to begin with.
int own_board_file(const char *path, bool with_content = true);
// The same before `path` is removed or renamed away: it must not come back from the template.
int prepare_removal(const char *path);

// Calls `visit` with each name in a directory, without "." and "..", until it returns false.
void each_board_entry(const char *path, bool (*visit)(const char *name, void *context),
                      void *context);

}  // namespace vboard

#endif
