// Requests (ioctl) on a modelled descriptor.

#ifndef VBOARD_INTERPOSER_CORE_REQUESTS_H
#define VBOARD_INTERPOSER_CORE_REQUESTS_H
#include "vboard/interposer/core/descriptors.h"

#include <cstdint>

namespace vboard {

// Performs a request with faults and trace: the kernel's result, or a negated errno.
int request_on_board(Description &description, std::uint32_t number, std::uint64_t address);

// The interface requests of any socket are the board's.
inline bool is_interface_request(std::uint32_t number) {
  return number >= 0x890B && number < 0x8A00;
}

// The description that takes the requests of a socket of the PC's kernel; null when `fd` is none.
Description *acquire_kernel_socket(int fd);

}  // namespace vboard

#endif
