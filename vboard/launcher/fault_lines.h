// The faults of a board and of a command line, checked for people.

#ifndef VBOARD_LAUNCHER_FAULT_LINES_H
#define VBOARD_LAUNCHER_FAULT_LINES_H

#include <cstddef>
#include <string_view>

namespace vboard {

inline constexpr std::size_t kFaultsSize = 65536;

// Reads the board's faults file into `out` (kFaultsSize bytes); a missing one is empty. The length,
// or -1 with the reason on standard error.
long read_faults(const char *board, char *out);

// 0, or kFailed with the first wrong line and its reason on standard error. `origin` names the
// text.
int check_faults(const char *origin, std::string_view text);
// The same, and whether the board has what they name.
int check_faults_of(const char *board, const char *origin, std::string_view text);

}  // namespace vboard

#endif
