// What is wrong with the files of a board.

#ifndef VBOARD_LAUNCHER_BOARD_CHECK_H
#define VBOARD_LAUNCHER_BOARD_CHECK_H

#include <stdio.h>

namespace vboard {

// Reads the nodes, the clock, the faults and the wires of the board and prints a line for each
// thing that no run would take as it stands: "SHOWN/FILE:LINE: REASON", where `shown` is the
// directory as people write it. The number of lines.
int check_board(const char *board, const char *shown, FILE *out);

}  // namespace vboard

#endif
