// What a device looks like.

#ifndef VBOARD_LAUNCHER_DRAW_DEVICES_H
#define VBOARD_LAUNCHER_DRAW_DEVICES_H
#include "vboard/launcher/node_tables.h"

#include <stdio.h>

namespace vboard {

// What follows a device's name on the board's page, without the line's end.
void draw_device_line(const char *board, const BoardNode &node, FILE *out);

// What there is of a device beside its settings, in lines of its own; nothing for a device that is
// its settings alone.
void draw_device(const char *board, const BoardNode &node, FILE *out);

}  // namespace vboard

#endif
