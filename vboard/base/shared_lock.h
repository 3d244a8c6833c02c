// A lock in memory that several processes share, 32-bit and 64-bit ones alike, which a mutex of
// libc's would not be.

#ifndef VBOARD_BASE_SHARED_LOCK_H
#define VBOARD_BASE_SHARED_LOCK_H

#include <atomic>
#include <cstdint>

namespace vboard {

// The thread that has it, and whether others wait.
struct SharedLock {
  std::atomic<std::uint32_t> word;
};

// A thread that dies with the lock gives it up. Not to be nested.
void take_lock(SharedLock &lock);
void give_up_lock(SharedLock &lock);
// Whether this thread has it.
bool has_lock(const SharedLock &lock);
// The number of this thread.
std::uint32_t own_thread();
// In the child of a fork: it is another thread now.
void renew_own_thread();

}  // namespace vboard

#endif
