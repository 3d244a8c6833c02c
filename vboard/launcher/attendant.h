// Attends to the schedule of a jumping run: takes note of processes that end however they end, and
// lets board time go on without threads that compute, or sleep in calls which nobody knows of.

#ifndef VBOARD_LAUNCHER_ATTENDANT_H
#define VBOARD_LAUNCHER_ATTENDANT_H
#include "vboard/board/run_page.h"

#include <poll.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace vboard {

inline constexpr std::size_t kMostAttended = 256;
// How long a thread may compute without a call until time goes on without it, in milliseconds of
// processor time.
inline constexpr std::uint32_t kPatience = 5;

// False without a bell; does nothing in a run at a fixed speed.
bool begin_attending(RunFile &run);
// The command has been made: it has the first seat.
void attend_command(RunFile &run, pid_t command);
// The descriptors to wait for; `fds` has room for 1 + kMostAttended. The number of them.
std::size_t attended_descriptors(pollfd *fds);
// Looks at the run, whenever a descriptor is ready or the pause is over.
void attend_schedule(RunFile &run);
// How long the schedule may go without a look, in nanoseconds of the PC.
std::int64_t attendants_pause(const RunFile &run);

}  // namespace vboard

#endif
