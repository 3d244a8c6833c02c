// The node file of a part that takes firmware through the kernel's firmware upload class:
// firmware/NAME of the board belongs to /sys/class/firmware/NAME.

#ifndef VBOARD_BOARD_FIRMWARE_PART_H
#define VBOARD_BOARD_FIRMWARE_PART_H
#include "vboard/board/settings.h"

#include <span>

namespace vboard {

std::span<const Setting> firmware_settings();

}  // namespace vboard

#endif
