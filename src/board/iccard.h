// Parts of the IC card test that need no card.

#ifndef BENCHRIG_BOARD_ICCARD_H
#define BENCHRIG_BOARD_ICCARD_H

#include <cstdint>
#include <span>

// The first byte that differs, -1 when there is none. Both blocks have the same length.
int find_difference(std::span<const std::uint8_t> read, std::span<const std::uint8_t> written);

// The insertion and removal test passes when the card went and came in every round.
void print_hotplug_verdict(int unplugged, int plugged);

#endif
