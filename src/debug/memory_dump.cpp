// Rows of the memory dump.

#include "debug/memory_dump.h"

#include <stdio.h>

void compose_dump_line(DumpLine &out_line, std::uint32_t address, const DumpWords &words) {
  const int used =
      snprintf(out_line.data(), out_line.size(), "%lx : %08X %08X %08X %08X  ",
               static_cast<unsigned long>(address), words[0], words[1], words[2], words[3]);
  std::size_t at = static_cast<std::size_t>(used);
  for (const std::uint32_t word : words) {
    for (int shift = 0; shift < 32; shift += 8) {  // in the order in which they stand in memory
      const std::uint32_t byte = word >> shift & 0xFF;
      if (at < out_line.size() - 1)
        out_line[at++] = byte >= 0x20 && byte <= 0x7F ? static_cast<char>(byte) : '.';  // DEL too
    }
  }
  out_line[at] = '\0';
}
