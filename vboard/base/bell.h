// A bell wakes one thread from poll(), from any process of the machine: a socket without a file,
// which is rung by its number.

#ifndef VBOARD_BASE_BELL_H
#define VBOARD_BASE_BELL_H

#include <cstdint>

namespace vboard {

// A descriptor that is readable once the bell has been rung, from `lowest` on; `out_number` names
// it for others. -1 when there is none to be had.
int make_bell(int lowest, std::uint32_t &out_number);
// Rings a bell by means of one's own.
void ring_bell(int own, std::uint32_t number);
void silence_bell(int own);

}  // namespace vboard

#endif
