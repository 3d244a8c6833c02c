// Calls of the kernel's that may wait. In a jumping run they are waits like any other: other
// threads go on meanwhile, and board time may pass.

#ifndef VBOARD_INTERPOSER_CORE_KERNEL_WAITS_H
#define VBOARD_INTERPOSER_CORE_KERNEL_WAITS_H

#include <poll.h>
#include <sys/types.h>

#include <cstddef>

namespace vboard {

// Waits until a descriptor of the kernel's is ready, unless it is not one to wait for. `what` is
// for a person. 0 or -EINTR.
int await_kernel(int fd, short events, const char *what);

// Whether a write of `size` bytes must go in pieces, so that it never waits for a reader that has
// no turn: a pipe takes kPipePiece bytes whenever it is writable.
inline constexpr std::size_t kPipePiece = 4096;
bool goes_in_pieces(int fd, std::size_t size);

// Tries again and again, whenever others have had a turn: until `try_once` answers true, or a
// signal comes whose handler does not let calls go on. 0 or -EINTR.
int await_true(bool (*try_once)(const void *), const void *context, const char *what);

// Whoever reads what the run writes is outside of it: board time stands still while that one lets
// the run wait.
struct HaltedTime {
  explicit HaltedTime(bool halts);
  ~HaltedTime();
  HaltedTime(const HaltedTime &) = delete;
  HaltedTime &operator=(const HaltedTime &) = delete;
  bool halts;
};
// Whether the descriptor is a pipe, socket or terminal that the run was given.
bool leads_outside(int fd);

}  // namespace vboard

#endif
