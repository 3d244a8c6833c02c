// What the processes of a run share about the board's open files, and how a process that inherits a
// descriptor finds it.
//
// A descriptor of the board is, to the kernel, an empty file in memory whose name says which shared
// file it stands for. It goes through dup(), fork() and exec() as any descriptor does, and whoever
// has no interposer finds nothing in it.

#ifndef VBOARD_INTERPOSER_CORE_SHARED_FILES_H
#define VBOARD_INTERPOSER_CORE_SHARED_FILES_H
#include "vboard/base/text.h"
#include "vboard/board/run_page.h"

#include <string_view>

namespace vboard {

// A zeroed shared file, held by this process; null when the run has no room for another one.
SharedFile *new_shared_file();
// Under the device lock: this process gives it up. True for the last one that had it.
bool leave_shared_file(SharedFile &shared);
// After the last process has left: the shared file is not used any more.
void free_shared_file(SharedFile &shared);

// Its name, "12:3", and the shared file of a name; null when that one is not open any more.
void append_shared_name(TextBuffer &out, const SharedFile &shared);
SharedFile *find_shared_file(std::string_view name);

// Opens the kernel's descriptor for it, at the lowest free number; a negated errno without one.
int open_stand_in(const SharedFile &shared, int flags);
// The shared file that a descriptor stands for; null for any other descriptor.
SharedFile *shared_file_behind(int fd);

}  // namespace vboard

#endif
