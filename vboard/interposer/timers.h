// The program's timers in a jumping run: board time is their clock.

#ifndef VBOARD_INTERPOSER_TIMERS_H
#define VBOARD_INTERPOSER_TIMERS_H

#include "vboard/interposer/model.h"

namespace vboard {

// The earliest expiry, kNever for none. Takes no lock.
BoardTime next_timer();
// Raises the signals of timers that are due. Under the engine's lock.
void fire_timers(BoardTime now);
// A child of a fork has no timers.
void forget_timers();

}  // namespace vboard

#endif
