// The story of a run: its requests, its waits and what it wrote to its standard streams, one line
// each, in order.
//
//   open /dev/rtc0 RDWR = 3
//   out "RTC time: 2024-01-01\n"
//   sleep 1.000000 (3 times)
//   err "rtc: cannot set\n"
//   board reset
//
// Requests and waits read as in a trace, without their times. A text is one line for each line that
// the program wrote, or for what it wrote before something else happened; bytes that are not
// printable ASCII are escaped as in C. Equal lines in a row are one line with a count.
//
// While a story is written the command's standard output and standard error are pipes, and the
// launcher passes on what comes through them.

#ifndef VBOARD_LAUNCHER_STORY_H
#define VBOARD_LAUNCHER_STORY_H
#include "vboard/board/run_page.h"

#include <poll.h>

#include <cstddef>
#include <string_view>

namespace vboard {

// Begins the story in `file` and lets the page's processes find it. Without a file there is none,
// and the functions below do nothing. 0, or a status with the reason on standard error.
int begin_story(const char *file, RunPage &page);

// In the child: its standard streams become the story's.
void enter_story();

// The descriptors to wait for; `fds` has room for kStoryStreams. The number of them.
std::size_t story_descriptors(pollfd *fds);

// Passes on what the command wrote and writes the lines that are complete. `command` gets SIGPIPE
// when nobody reads its output any more.
void continue_story(pid_t command);

// A line of the launcher's own, after all that has happened by now.
void add_to_story(std::string_view line);

// The last lines, once the command has ended; `outcome` is how the board ended, null for a run that
// ended by itself. 0, or a status with the reason on standard error.
int end_story(const char *outcome);

}  // namespace vboard

#endif
