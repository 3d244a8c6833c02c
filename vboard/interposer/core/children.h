// What a process hands on to its children.

#ifndef VBOARD_INTERPOSER_CORE_CHILDREN_H
#define VBOARD_INTERPOSER_CORE_CHILDREN_H

#include <cstddef>

namespace vboard {

// Remembers the settings that put this process on its board, and prepares for fork().
void keep_settings();
// The program that runs ARM programs on this PC; null without one.
const char *emulator();

// An environment with the board's settings, and with `open` (an entry of its own) unless it is
// null. `room` is for count_environment(given) entries.
std::size_t count_environment(char *const given[]);
char *const *complete_environment(char *const given[], char **room, char *open);

}  // namespace vboard

#endif
