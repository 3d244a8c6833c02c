// Passing the baton on, in whatever process of the run it happens.

#ifndef VBOARD_BOARD_TURNS_H
#define VBOARD_BOARD_TURNS_H
#include "vboard/board/run_page.h"

#include <sys/types.h>

#include <cstdint>

namespace vboard {

// Who passes it on.
struct Passer {
  int bell;           // its own, to ring others with
  std::int32_t seat;  // kNobody: the launcher
  pid_t command;      // which planned signals are for
  // Whether a process may be sent a signal. Null: any.
  bool (*may_signal)(pid_t process);
};

enum class Passed : std::uint8_t {
  kGiven,  // somebody has the baton
  kIdle,   // nobody, until something comes from outside
  kOver,   // the run has an outcome: the board has ended, or everybody waits for ever
};

// Under the schedule's lock, while nobody has the baton.
Passed pass_baton(RunFile &run, const Passer &passer);

// When a planned signal or text, or the end of the board, comes.
std::int64_t next_event(const RunPage &page);
// Sends the signals that are due, of timers as well, and notes which texts are: whoever passes the
// baton on next gives it to the launcher for them. kOver at the board's end, which is the page's
// outcome then.
Passed fire_events(RunFile &run, std::int64_t now, const Passer &passer);

}  // namespace vboard

#endif
