// The settings of a node, beside those of a new board.

#ifndef VBOARD_LAUNCHER_DRAW_SETTINGS_H
#define VBOARD_LAUNCHER_DRAW_SETTINGS_H
#include "vboard/launcher/node_tables.h"

#include <stdio.h>

namespace vboard {

// Reads a node of a new board, from the template or from nowhere (null): one that a new board
// lacks is empty, so that its settings are the defaults.
Node fresh_node(const char *board_template, std::string_view name);

// Every setting of the node in a line: its value, its default, what it means. A line begins with
// "*" when a new board has another value, with "!" when the value counts as the default because it
// makes no sense.
void draw_settings(const BoardNode &node, const Node &fresh, FILE *out);

// Calls `visit` with a line "KEY = VALUE (OTHER on a new board)" for each of those that begin so.
void each_change(const BoardNode &node, const Node &fresh,
                 void (*visit)(std::string_view change, void *context), void *context);

}  // namespace vboard

#endif
