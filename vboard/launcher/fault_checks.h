// What is wrong with a fault on a certain board, for people.

#ifndef VBOARD_LAUNCHER_FAULT_CHECKS_H
#define VBOARD_LAUNCHER_FAULT_CHECKS_H
#include "vboard/board/faults.h"
#include "vboard/launcher/suggestions.h"

namespace vboard {

// Why the fault would never show on this board: it has no such node, or the node's model does not
// know the request. Empty when it may show. A pattern may name what does not exist yet, and so may
// a path below /sys.
Reason fault_problem(const char *board, const Fault &fault);

}  // namespace vboard

#endif
