// This process's threads in the schedule of a jumping run: taking seats and leaving them, and
// passing the baton on.

#ifndef VBOARD_INTERPOSER_CORE_SEATS_H
#define VBOARD_INTERPOSER_CORE_SEATS_H
#include "vboard/board/schedule.h"
#include "vboard/board/turns.h"
#include "vboard/interposer/core/state.h"

#include <pthread.h>
#include <signal.h>
#include <sys/types.h>

#include <cstdint>

namespace vboard {

// This thread; null at other speeds, and until its first call.
extern __thread Seat *own_seat;
// Returns once this thread has the baton.
void take_baton();

// The schedule's lock, taken with every signal blocked.
void lock_engine(sigset_t &saved);
void unlock_engine(const sigset_t &saved);

Schedule &schedule();
// Whether this thread has a place in the order. Without room for one it runs when it likes.
bool has_seat();
std::int32_t own_index();
// Rings when this thread gets the baton, or is to poll its descriptors.
int own_bell();
inline bool has_baton() {
  return schedule().holder.load(std::memory_order_acquire) == own_index();
}

// Passes the baton on; under the lock.
void pass_on();
// This thread gives the others a turn; not under the lock.
void yield_baton();

// A program begins: also one that takes the place of another in the same process.
void begin_process();
// A child that has been made: it has a place in the order before it runs.
void expect_process(pid_t process);
// In the child of a fork, which is a thread of its own.
void leave_seats_of_parent();

// A thread that is about to be made, kNobody without room; then what the creator knows of it, and
// what it does first and last itself.
std::int32_t expect_thread();
void know_thread(std::int32_t seat, pthread_t handle);
void forget_thread(std::int32_t seat);
void begin_thread(std::int32_t seat);
void end_thread();
// `key` is the pthread_t; fits Wait::done.
bool thread_has_ended(const void *key);

// Ends waits of this process with this key, the longest waiting one first.
void wake_waiters(const void *key, bool all);
// A signal has been sent to a process of the run (0: to some).
void note_signal(pid_t process);

}  // namespace vboard

#endif
