// Lines of the board's page for memory, storage and what the kernel itself offers.

#ifndef VBOARD_LAUNCHER_DRAW_SYSTEM_H
#define VBOARD_LAUNCHER_DRAW_SYSTEM_H
#include "vboard/launcher/node_tables.h"

#include <stdio.h>

namespace vboard {

// What follows a device's name, without the line's end.
void phys_mem_line(const char *board, const BoardNode &node, FILE *out);
void korcmem_line(const char *board, const BoardNode &node, FILE *out);
void sata_disk_line(const char *board, const BoardNode &node, FILE *out);
void korstorage_line(const char *board, const BoardNode &node, FILE *out);

// Likewise for what has no device.
void memory_blocks_line(const char *board, FILE *out);
void overlays_line(const char *board, FILE *out);
void process_events_line(const char *board, FILE *out);

}  // namespace vboard

#endif
