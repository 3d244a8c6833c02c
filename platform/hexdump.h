// A hexadecimal dump, one row at a time.

#ifndef PLATFORM_HEXDUMP_H
#define PLATFORM_HEXDUMP_H

#include <cstddef>

namespace rigcore {

inline constexpr std::size_t kHexdumpRowBytes = 16;
// Room for one row: 8 digits of offset, the bytes, their characters, the line end; no terminator.
inline constexpr std::size_t kHexdumpRowSize = 8 + 1 + 16 * 3 + 1 + 2 + 1 + 16 + 1 + 1;

// Writes the row of up to 16 bytes at `offset` into `row`, ended by '\n' and not terminated, and
// returns its length. A short row keeps the place of the characters:
//   0000  62 6f 6f 74 00 00 00 00  00 00 00 00 00 00 00 00  |boot............|
std::size_t hexdump_row(char *row, std::size_t offset, const unsigned char *bytes,
                        std::size_t count);

}  // namespace rigcore

#endif
