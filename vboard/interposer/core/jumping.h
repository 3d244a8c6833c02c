// The waits of a jumping run: threads that block until something happens, and the clock that jumps
// when all of them do.

#ifndef VBOARD_INTERPOSER_CORE_JUMPING_H
#define VBOARD_INTERPOSER_CORE_JUMPING_H
#include "vboard/interposer/core/engine.h"

#include <pthread.h>
#include <signal.h>

namespace vboard {

WaitEnd wait_jumping(Wait &wait);
// Lets every thread that waits for a device look at it again.
void wake_watchers();

// Ends waits with this key, the longest waiting one first. Jumping runs only.
void wake_waiters(const void *key, bool all);

// The engine's own lock, taken with every signal blocked.
void lock_engine(sigset_t &saved);
void unlock_engine(const sigset_t &saved);

// Threads that jumping has to reckon with. One that begins is counted under the engine's lock,
// which its creator holds while it makes it.
void thread_begins(pthread_t thread);
void thread_ends(pthread_t thread);
// `key` is the pthread_t; fits Wait::done.
bool thread_has_ended(const void *key);
// In the child of a fork: one thread is left, with no waits.
void renew_engine();

}  // namespace vboard

#endif
