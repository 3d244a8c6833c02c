// The directory of a board that is used for one run only: "vboard.XXXXXX" in TMPDIR or /tmp.
//
// It holds an empty file of its own name with a dot in front. The process that uses the directory
// has a lock on that file, so that its end is certain: where nobody has the lock, a run was killed
// whole, and a later one sweeps what it left. A board that somebody made under such a name, and a
// copy of a directory, have no such file.

#ifndef VBOARD_LAUNCHER_SCRATCH_H
#define VBOARD_LAUNCHER_SCRATCH_H

namespace vboard {

// Makes a directory (kFileName bytes at `out`) for this process and its children. 0, or kFailed
// with the reason on standard error.
int make_scratch(char *out);

// Removes it with all that is in it.
void remove_scratch(const char *path);

// Removes those that no process uses any more.
void sweep_scratch();

}  // namespace vboard

#endif
