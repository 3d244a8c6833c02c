// One row of the memory dump: address, four words, and the sixteen bytes as characters.

#ifndef BENCHRIG_DEBUG_MEMORY_DUMP_H
#define BENCHRIG_DEBUG_MEMORY_DUMP_H

#include <array>
#include <cstddef>
#include <cstdint>

constexpr std::size_t kDumpRow = 16;   // bytes a row
constexpr std::size_t kDumpLine = 64;  // of the line buffer, its NUL included

using DumpLine = std::array<char, kDumpLine>;
using DumpWords = std::array<std::uint32_t, kDumpRow / sizeof(std::uint32_t)>;

// Composes the row without a line end. The line is cut at 63 characters, which with an address of
// eight digits costs the last of the sixteen characters: this width is the format of the dump.
void compose_dump_line(DumpLine &out_line, std::uint32_t address, const DumpWords &words);

#endif
