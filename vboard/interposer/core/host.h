// The interposer as the host of the models.

#ifndef VBOARD_INTERPOSER_CORE_HOST_H
#define VBOARD_INTERPOSER_CORE_HOST_H
#include "vboard/interposer/core/descriptors.h"

namespace vboard {

// Offers this process to the models, before any of them is called.
void start_host();

// In a process that has just inherited the descriptor: finds the claim of the device, or makes it
// again.
void keep_claim(Description &description);

// Reads the node file again when it has changed. Under the device lock, before the model is called.
void look_at_node(Description &description);

}  // namespace vboard

#endif
