// The run that this process belongs to: its board, its page shared with the launcher, its lock.

#ifndef VBOARD_INTERPOSER_CORE_STATE_H
#define VBOARD_INTERPOSER_CORE_STATE_H
#include "vboard/board/run_page.h"

#include <atomic>
#include <cstdint>
#include <string_view>

namespace vboard {

// The interposer's own descriptors start here; the low numbers belong to the program.
inline constexpr int kOwnDescriptors = 500;

enum : int { kUnknown, kStarting, kInactive, kActive };
extern std::atomic<int> run_state;
int start_run();

extern bool run_jumps;
inline bool jumping() {
  return run_jumps;
}

// A call of a jumping run begins: returns once it is this thread's turn.
void begin_call();

// Whether a board stands behind this process. Without one every wrapper passes through.
inline bool on_board() {
  int state = run_state.load(std::memory_order_acquire);
  if (__builtin_expect(state == kUnknown, 0))
    state = start_run();
  if (state != kActive)
    return false;
  if (jumping())
    begin_call();
  return true;
}

RunPage &run_page();
// Whom the board signals: as this program found them on the page, 0 without a launcher. A program
// that overruns the page must not choose them.
pid_t launcher_process();
pid_t command_process();
// The whole of what the run's processes share; null without a launcher.
RunFile *run_file();
std::string_view board_root();
const char *board_directory();
// The directory that the run began in, and the fault lines of its command line; empty without.
const char *work_directory();
const char *given_faults();
// One lock for the table of descriptors and the faults' counters. A signal handler of the program
// may call in while its own thread holds it.
void lock_board();
void unlock_board();
bool has_board_lock();  // this thread
// In the child of a fork, where another thread may have held it.
void renew_board_lock();

// Descriptors that the program must neither see nor close.
bool is_own_descriptor(int fd);
void add_own_descriptor(int fd);
void remove_own_descriptor(int fd);

// Ends the run with kBoardReset, kBoardReboot or kPowerCut. Does not return.
[[noreturn]] void end_run(std::uint32_t outcome);

}  // namespace vboard

#endif
