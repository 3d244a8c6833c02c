// Power switches of storage devices, /sys/devices/platform/NAME-power/state.
//
// A device without power is not there: its files, /sys/block/NAME and /dev/NAME, wait below
// "unpowered" of the board directory under the same names until the switch is on again. Only the
// files that the board has move, so that a card may do without a node in /dev.

#ifndef VBOARD_BOARD_POWER_SWITCHES_H
#define VBOARD_BOARD_POWER_SWITCHES_H

#include <string_view>

namespace vboard {

inline constexpr std::string_view kPowerSwitches = "/sys/devices/platform/";
inline constexpr std::string_view kPowerSwitch = "-power/state";

// What a write to the attribute `path` does: "enabled" or "1", "disabled" or "0". 0, or a negated
// errno; write_attribute() calls it.
int write_power_switch(const char *board, std::string_view path, std::string_view value);

}  // namespace vboard

#endif
