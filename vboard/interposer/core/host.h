// The interposer as the host of the models.

#ifndef VBOARD_INTERPOSER_CORE_HOST_H
#define VBOARD_INTERPOSER_CORE_HOST_H
#include "vboard/interposer/core/descriptors.h"

#include <span>

namespace vboard {

// Offers this process to the models, before any of them is called.
void start_host();

// In a process that has just inherited the descriptor: takes the claim of the device as its own.
void keep_claim(Description &description);
// Closes those of a new program's descriptors that are claims of devices which it does not have.
void drop_stray_claims(std::span<const int> fds);

// Reads the node file again when it has changed. Under the device lock, before the model is called.
void look_at_node(Description &description);

}  // namespace vboard

#endif
