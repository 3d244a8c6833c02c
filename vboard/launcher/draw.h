// What a board looks like, as text for a terminal (UTF-8).

#ifndef VBOARD_LAUNCHER_DRAW_H
#define VBOARD_LAUNCHER_DRAW_H

#include <stdio.h>

namespace vboard {

// One page of the whole board. 0, or a negated errno.
int draw_board(const char *board, FILE *out);

// One device in full: a node ("/dev/lcd"), an attribute ("/sys/..."), an interface ("net/ppp0" or
// "net:ppp0"), or another text of the board ("faults"). 0, or a negated errno: ENOENT when the
// board lacks it.
int draw_node(const char *board, const char *node, FILE *out);

}  // namespace vboard

#endif
