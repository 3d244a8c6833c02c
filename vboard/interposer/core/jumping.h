// The waits of a jumping run.

#ifndef VBOARD_INTERPOSER_CORE_JUMPING_H
#define VBOARD_INTERPOSER_CORE_JUMPING_H
#include "vboard/base/kernel.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/seats.h"

namespace vboard {

WaitEnd wait_jumping(Wait &wait);
// Whether the run was given this pipe or socket: its other end is outside.
bool is_given(const FileStatus &status);
// Board time takes the cost of a call on the board.
void spend_jumping();
// Of a call that only looks at the time, or prints: repeating it without a wait gets dear.
void spend_poll();
// Of a call of whatever kind: very many without a wait take board time.
void spend_other();

}  // namespace vboard

#endif
