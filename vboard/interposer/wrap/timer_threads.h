// Timers of a jumping run that call a function in a thread of its own (SIGEV_THREAD). A thread for
// each timer waits for its expiry as any thread of the program waits.

#ifndef VBOARD_INTERPOSER_WRAP_TIMER_THREADS_H
#define VBOARD_INTERPOSER_WRAP_TIMER_THREADS_H
#include "vboard/interposer/core/timers.h"

namespace vboard {

// Begins to serve a stopped timer: 0, or an errno.
int add_thread_timer(timer_t id, clockid_t clock, const sigevent &event);
// Null for any other timer.
PosixTimer *find_thread_timer(timer_t id);
// After the timer's times were changed.
void renew_thread_timer(PosixTimer &timer);
void delete_thread_timer(PosixTimer &timer);

}  // namespace vboard

#endif
