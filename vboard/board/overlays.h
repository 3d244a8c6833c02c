// Device-tree overlays at run time, /sys/kernel/config/device-tree/overlays.
//
// A directory that is made there is an overlay: `dtbo` takes its flattened tree, `status` tells
// "applied" when the properties have come into the tree (/proc/device-tree, where every property is
// a file), and removing the directory takes them back. What an overlay changed stands in
// overlays/NAME of the board, a line a property: node, name, the new value in hexadecimal and the
// old one ("-" for none).
//
// Both return 0 or a negated errno.

#ifndef VBOARD_BOARD_OVERLAYS_H
#define VBOARD_BOARD_OVERLAYS_H

#include <string_view>

namespace vboard {

int make_overlay(const char *board, std::string_view path);
int remove_overlay(const char *board, std::string_view path);

}  // namespace vboard

#endif
