// Opening, reading and writing on the board, in terms of the kernel: results are zero or positive,
// or a negated errno. The wrappers turn them into libc's.

#ifndef VBOARD_INTERPOSER_FILES_H
#define VBOARD_INTERPOSER_FILES_H

#include "vboard/interposer/descriptors.h"
#include "vboard/interposer/paths.h"

#include <errno.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace vboard {

// Turns a kernel's result into libc's.
template <typename Result>
Result report(Result result) {
  if (result >= 0)
    return result;
  errno = static_cast<int>(-result);
  return -1;
}

// Opens what resolve() found, faults and trace included. kPc is left to the caller.
int open_on_board(Resolved &resolved, int flags, unsigned int mode);

// Whether a path of the PC is a device that the board must not reach.
bool is_foreign_device(const char *path);

inline constexpr std::int64_t kAtPosition = -1;
ssize_t read_on_board(Description &description, void *buffer, std::size_t size,
                      std::int64_t offset);
ssize_t write_on_board(Description &description, const void *buffer, std::size_t size,
                       std::int64_t offset);
// close(): the trace line and the fault; the descriptor itself is the caller's to close.
int close_on_board(Description &description);

// Tells the person, once, when a call failed because there is no room for the board's files: a
// board has no such error of its own.
void notice_full(std::int64_t result);

// Ends a call by name: its trace line, its cost, libc's form of the result.
int end_by_name(const char *call, const Resolved &resolved, int result);

// "RDWR|CREAT" and the like, for traces.
void append_flags(struct TextBuffer &text, int flags);

// Waits until a model's descriptor is ready for reading: 0, -EINTR, or -EAGAIN without blocking.
int wait_readable(Description &description);

}  // namespace vboard

#endif
