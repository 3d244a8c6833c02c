// An environment as the boot loader writes it to flash: a CRC32 over the rest, then the entries.

#ifndef TESTS_UNIT_UBOOT_IMAGE_H
#define TESTS_UNIT_UBOOT_IMAGE_H

#include "vboard/board/uboot_env.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

inline std::string uboot_image(std::initializer_list<std::string_view> entries, std::size_t size) {
  std::string data;
  for (std::string_view entry : entries)
    data.append(entry).push_back('\0');
  data.resize(size - 4);
  std::uint32_t crc =
      vboard::crc32_of({reinterpret_cast<const unsigned char *>(data.data()), data.size()});
  std::string image;
  for (int shift = 0; shift < 32; shift += 8)
    image.push_back(static_cast<char>(crc >> shift));
  return image + data;
}

#endif
