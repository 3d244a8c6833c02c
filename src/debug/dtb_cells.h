// Cells of a device-tree property as they stand on a command line.

#ifndef BENCHRIG_DEBUG_DTB_CELLS_H
#define BENCHRIG_DEBUG_DTB_CELLS_H

#include <array>
#include <cstdint>

constexpr std::uint32_t kMostCells = 16;

struct DtbCells {
  std::array<std::uint32_t, kMostCells> words;
  std::uint32_t count;
};

// `wanted` cells, 16 at most, from the `argc` words of `argv`; words that are missing are 0.
DtbCells parse_cells(std::uint32_t wanted, int argc, char **argv);

#endif
