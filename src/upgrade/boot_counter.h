// The one field of the boot-parameter block that the tools change: an unsigned 8-bit counter, which
// wraps. Everything else in the block is the platform's business.

#ifndef BENCHRIG_UPGRADE_BOOT_COUNTER_H
#define BENCHRIG_UPGRADE_BOOT_COUNTER_H

#include "platform/boot_blocks.h"

#include <cstdint>

static_assert(RIG_BOOTPARAM_COUNTER == 250);
static_assert(RIG_BOOTPARAM_COUNTER < RIG_BOOTPARAM_SIZE);

inline void raise_boot_counter(std::uint8_t *block) {
  block[RIG_BOOTPARAM_COUNTER] = static_cast<std::uint8_t>(block[RIG_BOOTPARAM_COUNTER] + 1);
}

inline void lower_boot_counter(std::uint8_t *block) {
  block[RIG_BOOTPARAM_COUNTER] = static_cast<std::uint8_t>(block[RIG_BOOTPARAM_COUNTER] - 1);
}

#endif
