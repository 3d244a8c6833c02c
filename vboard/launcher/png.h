// Pictures of a device for reports and web pages.

#ifndef VBOARD_LAUNCHER_PNG_H
#define VBOARD_LAUNCHER_PNG_H

namespace vboard {

// Writes a node's picture. Only displays have one: ENOTSUP for other nodes, ENOENT when the board
// lacks the node, EIO when the file cannot be written. 0, or the negated errno.
int write_png(const char *board, const char *node, const char *file);

}  // namespace vboard

#endif
