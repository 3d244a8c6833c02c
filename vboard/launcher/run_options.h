// The options of "vboard run".

#ifndef VBOARD_LAUNCHER_RUN_OPTIONS_H
#define VBOARD_LAUNCHER_RUN_OPTIONS_H
#include "vboard/board/run_page.h"

#include <cstddef>
#include <cstdint>

namespace vboard {

inline constexpr int kMostFaultOptions = 64;

// A text that is typed on the run's terminal.
struct PlannedText {
  std::int64_t at;  // board time
  std::size_t size;
  char bytes[256];
};

struct RunOptions {
  const char *board;  // null for a temporary one
  bool jumping;
  std::int64_t speed_milli;
  const char *trace;
  const char *story;
  const char *faults[kMostFaultOptions];
  int fault_count;
  PlannedSignal signals[kMaxSignals];  // --for's is the last one
  int signal_count;
  bool has_terminal;
  PlannedText texts[kMaxTexts];  // the earliest first
  std::uint32_t text_count;
  std::int64_t end_at;        // of --for, kNoTime without it
  std::int64_t date;          // -1 without it
  std::int64_t power_cut_at;  // kNoTime without it
  char **command;
};

// Takes the words behind "run": 0, or a status with the reason on standard error.
int parse_run_options(int argc, char **argv, RunOptions &out);

}  // namespace vboard

#endif
