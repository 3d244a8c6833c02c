// What the kernel says about a process or a thread of the PC.

#ifndef VBOARD_BASE_PROCESS_STATUS_H
#define VBOARD_BASE_PROCESS_STATUS_H

#include <sys/types.h>

#include <cstdint>
#include <span>

namespace vboard {

struct ProcessStatus {
  char state;  // 'R' runs, 'S' sleeps, 'D' is busy with a disk, 'T' and 't' are stopped, 'Z' has
               // ended
  pid_t parent;
  int threads;
};

// False when there is none any more. `thread` may be 0: the process's first.
bool read_status(pid_t process, pid_t thread, ProcessStatus &out);
// Also when nobody has taken note of its end yet.
bool thread_has_died(pid_t thread);
// The last thread of a process, which need not be its first one, has died.
bool process_has_ended(pid_t process);
// The processor time of a process so far, in nanoseconds; -1 when it is not known.
std::int64_t processor_time(pid_t process);
// How often a thread has been given a processor so far; 0 when it is not known.
std::int64_t times_run(pid_t process, pid_t thread);
// The process that traces it, as a debugger does; 0 without.
pid_t tracer_of(pid_t process);
// The name of its program as the kernel keeps it; empty when it is not known.
void read_program_name(pid_t process, std::span<char> out);

}  // namespace vboard

#endif
