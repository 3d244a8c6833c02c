#include "vboard/board/uboot_env.h"

#include <algorithm>

namespace vboard {
namespace {

constexpr std::size_t kDataOffset = 4;

}  // namespace

std::uint32_t crc32_of(std::span<const unsigned char> bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const unsigned char byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit)
      crc = (crc >> 1) ^ (crc & 1 ? 0xEDB88320 : 0);
  }
  return ~crc;
}

bool next_uboot_variable(std::span<const unsigned char> image, std::size_t &offset,
                         std::string_view &out) {
  const std::size_t at = std::max(offset, kDataOffset);
  std::size_t end = at;
  while (end < image.size() && image[end] != 0)
    ++end;
  if (at >= image.size() || end == at)
    return false;
  out = {reinterpret_cast<const char *>(image.data()) + at, end - at};
  offset = end + 1;
  return true;
}

UbootEnv inspect_uboot_env(std::span<const unsigned char> image) {
  UbootEnv env = {};
  if (image.size() < kDataOffset + 2)
    return env;
  std::uint32_t stored = 0;
  for (int byte = 3; byte >= 0; --byte)
    stored = (stored << 8) | image[static_cast<std::size_t>(byte)];
  env.valid = stored == crc32_of(image.subspan(kDataOffset));
  if (!env.valid)
    return env;
  std::size_t offset = 0;
  std::string_view entry;
  while (next_uboot_variable(image, offset, entry)) {
    ++env.variables;
    env.used += entry.size() + 1;
  }
  return env;
}

}  // namespace vboard
