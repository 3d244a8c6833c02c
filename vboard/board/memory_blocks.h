// The blocks of the board's memory, /sys/devices/system/memory.
//
//   block_size_bytes     hexadecimal, without 0x
//   probe                a block's start address written here makes memoryN
//   auto_online_blocks   online: a block that is made this way begins online, else offline
//   memoryN/state        online, offline; online_movable and online_kernel may be written as well
//
// These hooks do what the kernel does when an attribute is written; write_attribute() calls them.
// They return 0 or a negated errno.

#ifndef VBOARD_BOARD_MEMORY_BLOCKS_H
#define VBOARD_BOARD_MEMORY_BLOCKS_H

#include <string_view>

namespace vboard {

int write_memory_probe(const char *board, std::string_view value);
int write_memory_state(const char *board, std::string_view path, std::string_view value);

}  // namespace vboard

#endif
