// Power cuts at a call: what a fault with the effect "power-cut" does.
//
// Power fails in the middle of a write or a request: half of the work is done, the caller never
// sees an answer, and the run ends with "power cut". Any other call ends it at once.

#ifndef VBOARD_INTERPOSER_CORE_POWER_CUT_H
#define VBOARD_INTERPOSER_CORE_POWER_CUT_H
#include "vboard/interposer/core/descriptors.h"

#include <cstddef>
#include <string_view>

namespace vboard {

// Power fails in this call, which this thread is making.
void fail_power_in(std::string_view call);
// Whether it does.
bool power_fails();
// Ends the run if it does.
void end_power_if_failing();

// How many bytes of a write the device gets before power fails. All of them for a model that writes
// in pieces: it finds out by itself.
std::size_t size_before_power_cut(const Description &description, std::size_t size);

}  // namespace vboard

#endif
