// The command of a run: finding it, what its environment says, starting it.

#ifndef VBOARD_LAUNCHER_PROGRAM_H
#define VBOARD_LAUNCHER_PROGRAM_H
#include "vboard/launcher/boards.h"
#include "vboard/launcher/run_options.h"

namespace vboard {

struct Program {
  char file[kFileName];
  char preload[kFileName];  // the interposer, as LD_PRELOAD takes it
  bool foreign;             // 32-bit ARM, for the emulator
};

// 0, or the status to fail with and the reason on standard error.
int find_program(const char *name, Program &out);

// Puts the run into the environment. `board_template` is null for a board that has all of its
// files; `page_fd` is the run page's descriptor.
void set_environment(const RunOptions &options, const char *board, const char *board_template,
                     const Program &program, int page_fd);

// Becomes the command, in the child.
[[noreturn]] void execute(const Program &program, char **command);

}  // namespace vboard

#endif
