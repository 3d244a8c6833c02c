// The files of a board by their paths below its directory.
//
// A board that "vboard new" made holds all of its files. The board of a run without --board begins
// as an empty directory over the template of a board: what it lacks is read from the template in
// place, and a file is copied into the directory before it is first written. Where something of the
// template is to be removed or renamed, the whole template is copied first, and the board is on its
// own from then on.
//
// Every path here is absolute, except for names on the board. One outside of the board's directory,
// and any path while the board has no template, is simply the kernel's. Results are zero or
// positive, or a negated errno.

#ifndef VBOARD_BOARD_BOARD_FILES_H
#define VBOARD_BOARD_BOARD_FILES_H
#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_paths.h"

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vboard {

// Where a file lies.

using BoardPath = FixedText<kPathSize>;

// The path of the file that the board in the directory `board` calls `name`: "/dev/lcd", or
// "dev/lcd". -EINVAL for a name with a component "..", and for one of the board's directory itself;
// -ENAMETOOLONG.
int find_board_file(std::string_view board, std::string_view name, BoardPath &out);
// The path of media/NAME. -EINVAL for a name with a slash or a dot at its front, -ENOENT for an
// empty one.
int find_medium(std::string_view board, std::string_view name, BoardPath &out);
// The path of the attribute `name` in the directory of the attribute `attribute`.
int find_sibling(std::string_view board, std::string_view attribute, std::string_view name,
                 BoardPath &out);

// The board over its template.

// Puts the board in `directory` over its template. `is_whole` becomes 1 when the board does
// not need the template any more; all processes of a run share it. The texts must stay.
void set_template(const char *directory, const char *template_directory,
                  std::atomic<std::uint32_t> *is_whole);

// open(). A file of the template is copied first when the flags allow writing; a directory of the
// template is made in the board when it is opened.
int board_open(const char *path, int flags, unsigned int mode = 0);
int board_stat(const char *path, FileStatus &out, bool follow = true);
ssize_t board_readlink(const char *path, char *buffer, std::size_t size);

// The path that `path` has in the template; false when it cannot come from there. `room` bytes at
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

// Whole files by their names on the board, for what keeps its state in more than one of them.

// The bytes read, at most what `out` holds.
ssize_t load_state(std::string_view board, std::string_view name, std::span<char> out);
// Makes or replaces the file; its directory must be there. An attribute below /sys is written in
// place: programs keep one open, and read its new value through the same descriptor.
int store_state(std::string_view board, std::string_view name, std::string_view bytes);
int remove_state(std::string_view board, std::string_view name);
// 0 also when the directory is there.
int make_state_directory(std::string_view board, std::string_view name);
int remove_state_directory(std::string_view board, std::string_view name);
// -EEXIST when something has the new name.
int move_state(std::string_view board, std::string_view from, std::string_view to);
// A descriptor that holds the directory's exclusive lock until it is closed.
int lock_state_directory(std::string_view board, std::string_view name);
bool has_state(std::string_view board, std::string_view name);

}  // namespace vboard

#endif
