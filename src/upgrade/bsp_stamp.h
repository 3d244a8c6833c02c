// Version and build day of the board-support package: the running kernel's, from packed words.

#ifndef BENCHRIG_UPGRADE_BSP_STAMP_H
#define BENCHRIG_UPGRADE_BSP_STAMP_H

#include <cstdint>

struct BspStamp {
  int major;
  int minor;
  int patch;
  int year;  // with its century
  int month;
  int day;
};

// `version`: major in bits 16 and up, minor in bits 8 to 15, patch in bits 0 to 7. `date`: year -
// 2000, month and day in the same places.
constexpr BspStamp decode_bsp_stamp(std::uint32_t version, std::uint32_t date) {
  return {
      .major = static_cast<int>(version >> 16),
      .minor = static_cast<int>(version >> 8 & 0xFF),
      .patch = static_cast<int>(version & 0xFF),
      .year = static_cast<int>(date >> 16) + 2000,
      .month = static_cast<int>(date >> 8 & 0xFF),
      .day = static_cast<int>(date & 0xFF),
  };
}

#endif
