// Reading, writing and closing on the board, faults and trace included, in terms of the kernel:
// results are zero or positive, or a negated errno. The wrappers turn them into libc's.

#ifndef VBOARD_INTERPOSER_CORE_TRANSFERS_H
#define VBOARD_INTERPOSER_CORE_TRANSFERS_H
#include "vboard/interposer/core/descriptors.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace vboard {

inline constexpr std::int64_t kAtPosition = -1;
ssize_t read_on_board(Description &description, void *buffer, std::size_t size,
                      std::int64_t offset);
ssize_t write_on_board(Description &description, const void *buffer, std::size_t size,
                       std::int64_t offset);
// lseek() on what has a position of its own: devices and attributes.
std::int64_t seek_on_board(Description &description, std::int64_t offset, int whence);
// close(): the trace line and the fault; the descriptor itself is the caller's to close.
int close_on_board(Description &description);

// Waits until a model's descriptor is ready for reading: 0, -EINTR, or -EAGAIN without blocking.
int wait_readable(Description &description);

}  // namespace vboard

#endif
