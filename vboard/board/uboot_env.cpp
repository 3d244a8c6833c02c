#include "vboard/board/uboot_env.h"

#include <algorithm>

namespace vboard {
namespace {

constexpr std::size_t kDataOffset = 4;

}  // namespace

std::uint32_t crc32_of(std::span<const unsigned char> bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (unsigned char byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; bit++)
      crc = (crc >> 1) ^ (crc & 1 ? 0xEDB88320 : 0);
  }
  return ~crc;
}

bool build_uboot_env(std::string_view text, std::span<unsigned char> out) {
  if (out.size() < kDataOffset + 2)
    return false;
  std::fill(out.begin(), out.end(), static_cast<unsigned char>(0));
  std::size_t at = kDataOffset;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    if (line.find_first_not_of(" \t\r") == std::string_view::npos || line[0] == '#')
      continue;
    std::size_t equals = line.find('=');
    // The entry, its end and the empty entry behind the last one.
    if (equals == std::string_view::npos || equals == 0 || line.size() + 2 > out.size() - at)
      return false;
    std::copy(line.begin(), line.end(), out.begin() + static_cast<std::ptrdiff_t>(at));
    at += line.size() + 1;
  }
  std::uint32_t crc = crc32_of(out.subspan(kDataOffset));
  for (int byte = 0; byte < 4; byte++)
    out[static_cast<std::size_t>(byte)] = static_cast<unsigned char>(crc >> (8 * byte));
  return true;
}

bool next_uboot_variable(std::span<const unsigned char> image, std::size_t &offset,
                         std::string_view &out) {
  std::size_t at = std::max(offset, kDataOffset);
  std::size_t end = at;
  while (end < image.size() && image[end] != 0)
    end++;
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
  for (int byte = 3; byte >= 0; byte--)
    stored = (stored << 8) | image[static_cast<std::size_t>(byte)];
  env.valid = stored == crc32_of(image.subspan(kDataOffset));
  if (!env.valid)
    return env;
  std::size_t offset = 0;
  std::string_view entry;
  while (next_uboot_variable(image, offset, entry)) {
    env.variables++;
    env.used += entry.size() + 1;
  }
  return env;
}

}  // namespace vboard
