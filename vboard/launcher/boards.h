// Board directories as the launcher handles them: finding, making, checking and removing them.

#ifndef VBOARD_LAUNCHER_BOARDS_H
#define VBOARD_LAUNCHER_BOARDS_H
#include "vboard/board/board_files.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vboard {

inline constexpr int kFailed = 125;  // vboard itself failed
inline constexpr int kNotRunnable = 126;
inline constexpr int kNotFound = 127;
inline constexpr std::size_t kFileName = 4096;

// "vboard: " and the message, with a line feed, on standard error. Returns kFailed.
__attribute__((format(printf, 1, 2))) int fail(const char *format, ...);

// Finds a file that belongs to vboard, by its place relative to the launcher's own: the first of
// `places` that exists. False when there is none.
bool find_own_file(const char *const *places, std::size_t count, char *out);

// The path of a file of the board by its name there; false, with a message, when there is none.
bool locate(const char *board, std::string_view name, BoardPath &out);

// Checks that `directory` is a board that this vboard understands, and makes its name absolute.
// 0, or kFailed with the reason on standard error.
int open_board(const char *directory, char *out);

// The template of a healthy board, found from the launcher's own place (kFileName bytes at `out`).
// 0, or kFailed with the reason on standard error.
int find_template(char *out);

// Makes a healthy board in a directory that does not exist yet or is empty. `gyro` may be null.
int make_board(const char *directory, const char *gyro);
// The same for a board with nothing on it, and for one like the board in `other`.
int make_bare_board(const char *directory);
int copy_board(const char *directory, const char *other);

// The file of a node as people name it: "/dev/lcd", "net:ppp0". False, with a message, when the
// board has no such node.
bool find_node_file(const char *board, const char *node, BoardPath &out);

}  // namespace vboard

#endif
