// Cells on a command line.

#include "debug/dtb_cells.h"

#include "common/numbers.h"

#include <algorithm>

DtbCells parse_cells(std::uint32_t wanted, int argc, char **argv) {
  DtbCells cells = {};
  cells.count = std::min(wanted, kMostCells);
  for (int i = 0; i < argc && i < static_cast<int>(cells.count); ++i)
    cells.words[static_cast<std::size_t>(i)] = parse_u32(argv[i], 0);
  return cells;
}
