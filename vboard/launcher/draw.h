// What a board looks like, as text for a terminal (UTF-8).

#ifndef VBOARD_LAUNCHER_DRAW_H
#define VBOARD_LAUNCHER_DRAW_H

#include <stdio.h>

namespace vboard {

// `board_template` is that of a new board, whose settings those of the board are compared with;
// with null they are compared with the models' defaults.

// One page of the whole board: what it has, and what is not as on a new one. 0, or a negated errno.
int draw_board(const char *board, const char *board_template, FILE *out);

// One thing in full: a node ("/dev/lcd"), an interface ("net/ppp0" or "net:ppp0"), an attribute
// ("/sys/..."), or another file of the board ("faults"). 0, or a negated errno: ENOENT when the
// board lacks it.
int draw_node(const char *board, const char *board_template, const char *node, FILE *out);

}  // namespace vboard

#endif
