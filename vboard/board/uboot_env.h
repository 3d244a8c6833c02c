// The U-Boot environment as it lies in flash: a CRC32 (little endian) over the rest, then
// "name=value" entries, each ended by a zero byte, and an empty one at the end.

#ifndef VBOARD_BOARD_UBOOT_ENV_H
#define VBOARD_BOARD_UBOOT_ENV_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vboard {

// CRC-32 as Ethernet and gzip have it.
std::uint32_t crc32_of(std::span<const unsigned char> bytes);

struct UbootEnv {
  bool valid;  // the CRC holds
  int variables;
  std::size_t used;  // bytes of entries, their ends included
};

UbootEnv inspect_uboot_env(std::span<const unsigned char> image);

// Takes the next "name=value" of an image; false at the end.
bool next_uboot_variable(std::span<const unsigned char> image, std::size_t &offset,
                         std::string_view &out);

}  // namespace vboard

#endif
