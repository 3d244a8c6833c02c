// What a process hands on to its children.

#ifndef VBOARD_INTERPOSER_CORE_CHILDREN_H
#define VBOARD_INTERPOSER_CORE_CHILDREN_H

#include <cstddef>

namespace vboard {

// Remembers the settings that put this process on its board, and prepares for fork().
void keep_settings();
// The program that runs ARM programs on this PC; null without one.
const char *emulator();

// An environment with the board's settings: `given` itself when it has them all. `room` is for
// count_environment(given) + std::size(kNames) entries.
std::size_t count_environment(char *const given[]);
char *const *complete_environment(char *const given[], char **room);

}  // namespace vboard

#endif
