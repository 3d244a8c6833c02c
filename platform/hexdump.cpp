// The row of a hexadecimal dump.

#include "platform/hexdump.h"

namespace rigcore {

std::size_t hexdump_row(char *row, std::size_t offset, const unsigned char *bytes,
                        std::size_t count) {
  static constexpr char kDigits[] = "0123456789abcdef";
  char *out = row;
  // Four digits do for every block of a board; eight when they are needed.
  for (int shift = offset > 0xFFFF ? 28 : 12; shift >= 0; shift -= 4)
    *out++ = kDigits[offset >> shift & 0xF];
  *out++ = ' ';
  for (std::size_t i = 0; i < kHexdumpRowBytes; ++i) {
    if (i == kHexdumpRowBytes / 2)
      *out++ = ' ';
    *out++ = ' ';
    *out++ = i < count ? kDigits[bytes[i] >> 4] : ' ';
    *out++ = i < count ? kDigits[bytes[i] & 0xF] : ' ';
  }
  *out++ = ' ';
  *out++ = ' ';
  *out++ = '|';
  for (std::size_t i = 0; i < count; ++i)
    *out++ = bytes[i] >= 0x20 && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '.';
  *out++ = '|';
  *out++ = '\n';
  return static_cast<std::size_t>(out - row);
}

}  // namespace rigcore
