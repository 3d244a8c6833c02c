// Whose a path is, the board's or the PC's, by its name alone.

#ifndef VBOARD_BOARD_BOARD_PATHS_H
#define VBOARD_BOARD_BOARD_PATHS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vboard {

inline constexpr std::size_t kPathSize = 4096;

enum class Territory : std::uint8_t {
  kPc,       // the PC's
  kBoard,    // the board's alone: what the board directory lacks does not exist
  kOverlay,  // the board's files win over the PC's
};

// `path` must be absolute and in normal form. "/dev/null" and its like are the PC's.
Territory territory_of(std::string_view path);

// The absolute form of `path`, with "." and ".." and double slashes resolved by name; `base` is the
// absolute directory that a relative path starts from. The length, or 0 when it does not fit or is
// empty. `names_directory` tells of a slash (or a dot) at the end.
std::size_t normalise_path(std::string_view base, std::string_view path, std::span<char> out,
                           bool &names_directory);

// Whether the command's first word is one that restarts or halts the board: "reboot",
// "/sbin/poweroff -f", "exec reboot".
bool is_reboot_command(std::string_view command);

}  // namespace vboard

#endif
