// Programs for 32-bit ARM on a machine of another kind: the launcher, and every process of a run
// that starts one, hand them to an emulator. Programs of both kinds stay on the board, since $LIB
// in LD_PRELOAD is for each loader its own folder of libraries.

#ifndef VBOARD_BOARD_EMULATION_H
#define VBOARD_BOARD_EMULATION_H

namespace vboard {

// Set by the launcher when ARM programs need it: the emulator's absolute path. It finds the
// libraries of the programs by its own variable.
inline constexpr char kEmulatorVariable[] = "VBOARD_EMULATOR";
inline constexpr char kEmulatorLibraries[] = "QEMU_LD_PREFIX";

inline constexpr char kLoadersFolder[] = "$LIB";
inline constexpr char kArmFolder[] = "lib/arm-linux-gnueabihf";

// The words in front of an emulated program's own: the emulator, "-0", and the name that the
// program is to see; the program's file is the next one.
inline constexpr int kEmulatorWords = 3;

// Whether `file` is a program for 32-bit ARM.
bool is_arm_program(const char *file);

}  // namespace vboard

#endif
