// The two halves of the engine: what passes time by (engine.cpp), and the waits of a jumping run
// (jumping.cpp).

#ifndef VBOARD_INTERPOSER_CORE_JUMPING_H
#define VBOARD_INTERPOSER_CORE_JUMPING_H
#include "vboard/interposer/core/engine.h"

namespace vboard {

WaitEnd wait_jumping(Wait &wait);
// Lets every thread that waits for a device look at it again.
void wake_watchers();

// The next moment at which something happens by itself.
BoardTime next_scheduled();
// Under the engine's lock, signals blocked: what is raised here is delivered when they are not.
void fire_scheduled(BoardTime now);

// Fills the watches' revents: true when one of them is ready. `earliest` becomes the moment of the
// next one when that comes before it.
bool look_at_watches(Wait &wait, BoardTime now, BoardTime &earliest);
// Polls the kernel's descriptors of a wait and the thread's own bell. The number of ready ones
// without the bell, or -1 when a signal came in.
int poll_kernel(Wait &wait, int event_fd, const timespec *limit, const sigset_t *mask);
// Writes the line of a wait that asks for one, once.
void write_wait_line(Wait &wait);

}  // namespace vboard

#endif
