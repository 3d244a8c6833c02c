// What a board's clock file keeps from run to run:
//
//   ahead_ns = 18000000000   how far the board's calendar is ahead of the PC's
//   reset_at = 17040...      the calendar moment (in nanoseconds) at which an armed watchdog bites
//   boots = 3                how often the board was reset or rebooted

#ifndef VBOARD_LAUNCHER_BOARD_CLOCK_H
#define VBOARD_LAUNCHER_BOARD_CLOCK_H
#include "vboard/board/run_page.h"

#include <cstdint>

namespace vboard {

struct BoardClock {
  std::int64_t calendar_start;  // the board's calendar when the run begins
  std::int64_t reset_time;  // board time at which a watchdog of an earlier run bites, or kNoTime
};

// Reads the clock file. A watchdog whose time is over has reset the board: it is booted now.
// `date` is the calendar that the run was given, -1 for none.
BoardClock start_board_clock(const char *board, std::int64_t date);

// Stores what the run leaves behind. A run with a calendar of its own leaves the board's as it was.
void stop_board_clock(const char *board, const RunPage &page, const BoardClock &started,
                      bool own_date);

}  // namespace vboard

#endif
