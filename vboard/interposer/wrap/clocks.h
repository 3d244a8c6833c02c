// The board's clocks as the wrappers of every width of time read and set them, in nanoseconds.

#ifndef VBOARD_INTERPOSER_WRAP_CLOCKS_H
#define VBOARD_INTERPOSER_WRAP_CLOCKS_H

#include <sys/types.h>

#include <cstdint>

namespace vboard {

std::int64_t read_calendar();
// The board's clock of that name; false for clocks that are not of the wall.
bool read_clock(clockid_t clock, std::int64_t &out);
// Sets the calendar; `call` names it in the trace. 0, or -1 and EINVAL for a time that it lacks.
int set_calendar(std::int64_t calendar, const char *call);

}  // namespace vboard

#endif
