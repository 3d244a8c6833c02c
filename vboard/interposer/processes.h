// What a process hands on to its children.

#ifndef VBOARD_INTERPOSER_PROCESSES_H
#define VBOARD_INTERPOSER_PROCESSES_H

namespace vboard {

// Remembers the settings that put this process on its board, and prepares for fork().
void keep_settings();

}  // namespace vboard

#endif
