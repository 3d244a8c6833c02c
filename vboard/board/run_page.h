// What the launcher and every process of a run share: a page of memory, made by the launcher and
// found by the interposer through the environment (kRunVariable).

#ifndef VBOARD_BOARD_RUN_PAGE_H
#define VBOARD_BOARD_RUN_PAGE_H
#include "vboard/base/shared_lock.h"
#include "vboard/board/schedule.h"
#include "vboard/board/story_record.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace vboard {

// The environment of a run.
inline constexpr char kBoardVariable[] = "VBOARD_DIR";          // the board directory, absolute
inline constexpr char kTemplateVariable[] = "VBOARD_TEMPLATE";  // of a fresh board: what it lacks
inline constexpr char kRunVariable[] = "VBOARD_RUN";            // the file of the run page
inline constexpr char kTraceVariable[] = "VBOARD_TRACE";        // the trace file, absolute
inline constexpr char kFaultsVariable[] = "VBOARD_FAULTS";      // more fault lines
inline constexpr char kWorkVariable[] = "VBOARD_WORK";  // the directory that the run began in

// From a program to the one that takes its place by exec(): "PID FILE:GENERATION ...", the shared
// files that the process has open.
inline constexpr char kOpenVariable[] = "VBOARD_OPEN";

inline constexpr std::uint32_t kRunMagic = 0x76627231;
inline constexpr int kMaxSignals = 16;
inline constexpr std::uint32_t kMaxTexts = 64;

enum : std::uint32_t {
  kGoingOn = 0,
  kBoardReset = 80,
  kBoardReboot = 81,
  kPowerCut = 82,
  kWaitsForEver = 83,
};

// What the end of a board is called; null while it goes on.
inline const char *outcome_text(std::uint32_t outcome) {
  switch (outcome) {
    case kBoardReset:
      return "board reset";
    case kBoardReboot:
      return "board reboot";
    case kPowerCut:
      return "power cut";
    case kWaitsForEver:
      return "waits for ever";
    default:
      return nullptr;
  }
}

struct PlannedSignal {
  std::int64_t at;  // board time
  std::int32_t number;
  std::atomic<std::uint32_t> sent;
};

struct GivenFile {
  std::uint64_t device, inode;
};
inline constexpr std::size_t kMostGiven = 16;

// A device that works by itself until `until`, in board time; zeros for a place that is free.
struct BusyDevice {
  std::uint64_t name;  // hashed
  std::int64_t until;
};
inline constexpr int kMostBusy = 16;

struct RunPage {
  std::uint32_t magic;
  std::int32_t launcher;  // process ids
  std::atomic<std::int32_t> command;
  std::uint32_t jumping;         // board time jumps from wait to wait
  std::int64_t speed_milli;      // otherwise: board milliseconds a second of the PC
  std::int64_t monotonic_start;  // the PC's CLOCK_MONOTONIC when the run began
  std::atomic<std::int64_t>
      calendar_start;                // the board's calendar then; setting the clock moves it
  std::atomic<std::int64_t> jumped;  // board time of a jumping run
  std::atomic<std::int64_t> reset_time;
  std::int64_t power_cut_at;  // board time, kNoTime for never
  std::atomic<std::uint32_t>
      board_is_whole;                  // a fresh board that does not need its template any more
  std::atomic<std::uint32_t> outcome;  // kGoingOn or how the board ended: the first one stays
  // The story: descriptors of the launcher (-1 without one), and how far it has read the streams.
  std::int32_t story_records;
  std::int32_t story_streams[kStoryStreams];
  std::atomic<std::uint32_t> story_sequence;  // odd while the launcher reads
  std::atomic<std::uint64_t> story_read[kStoryStreams];
  // Devices: who works on one, how often a setting has changed, whether any has been opened at all.
  SharedLock device_lock;
  std::atomic<std::uint32_t> changes;
  std::atomic<std::uint32_t> has_opened;
  std::uint32_t files_end;  // the shared files from here on were never used
  // A bit for each of the first faults of the command line: some process has met it.
  std::atomic<std::uint64_t> faults_met;
  // Under the device lock.
  std::int64_t busy_until;  // of any device
  BusyDevice busy[kMostBusy];
  std::uint32_t signal_count;
  PlannedSignal signals[kMaxSignals];
  // The texts that the launcher types on the run's terminal, the earliest first: how many there
  // are, are due and have been typed.
  std::uint32_t text_count;
  std::atomic<std::uint32_t> texts_due, texts_typed;
  std::uint32_t has_terminal, terminal_major, terminal_minor;
  std::uint64_t texts_that_signal;  // a bit for each text with a ^C or another key that signals
  std::int64_t text_times[kMaxTexts];
  // The pipes and sockets that the command was given: what waits for them waits for something
  // outside of the run.
  std::uint32_t given_count;
  GivenFile given[kMostGiven];
  std::uint64_t pipe_device;  // where the kernel keeps pipes without a name
  std::uint32_t patience;  // milliseconds of processor time that a thread may take without a call
  char stuck_on[128];      // of an outcome of kWaitsForEver: what the threads wait for
};
static_assert(sizeof(RunPage) <= 4096);

// Behind the page in the same file: what the processes of a run know together about open files and
// devices. All of it begins as zeros, and ends with the run.

// What socket() was called with.
struct SocketKind {
  std::int32_t family, type, protocol;
};

// One open file of the board, as every process that has inherited it sees it.
struct SharedFile {
  enum : std::uint32_t { kFree, kOpen, kClosed };
  std::uint32_t use;         // kClosed: the last process still has calls under way
  std::uint32_t generation;  // a later file in the same place has another one
  std::int32_t processes;    // that have a descriptor of it
  std::uint32_t kind;
  std::int32_t flags;  // of open(), as F_SETFL has changed them
  std::int32_t claim;  // the descriptor that keeps others away from the device, 0 without
  std::int64_t opened_at;
  std::int64_t position;  // of what has one
  std::uint64_t seen;     // of an attribute: a hash of the text that was looked at last
  std::uint32_t changed;  // of an attribute: it has not been read since a change that counts
  char asked[256];        // its name on the board, as the program gave it and without links
  char real[256];
  char model[64];
  SocketKind socket;  // of a socket
  alignas(16) unsigned char state[1024];
};

inline constexpr std::size_t kSharedFiles = 1024;
inline constexpr std::size_t kSharedDevices = 64;
inline constexpr std::size_t kSharedDeviceSize = 64 << 10;

struct SharedDevice {
  char name[256];
  alignas(16) unsigned char memory[kSharedDeviceSize];
};

struct RunFile {
  alignas(4096) RunPage page;
  alignas(4096) SharedFile files[kSharedFiles];
  alignas(4096) SharedDevice devices[kSharedDevices];
  alignas(4096) Schedule schedule;
};

// When the board ends by itself, and how.
inline std::int64_t end_of_board(const RunPage &page) {
  const std::int64_t reset_time = page.reset_time.load(std::memory_order_relaxed);
  return reset_time < page.power_cut_at ? reset_time : page.power_cut_at;
}
inline std::uint32_t outcome_of_end(const RunPage &page) {
  return page.power_cut_at <= page.reset_time.load(std::memory_order_relaxed) ? kPowerCut
                                                                              : kBoardReset;
}

inline std::int64_t board_from_pc(const RunPage &page, std::int64_t nanoseconds) {
  return page.speed_milli == 1000
             ? nanoseconds
             : nanoseconds / 1000 * page.speed_milli + nanoseconds % 1000 * page.speed_milli / 1000;
}

// Rounded up, so that a wait is over when the board's clock says so.
inline std::int64_t pc_from_board(const RunPage &page, std::int64_t nanoseconds) {
  if (page.speed_milli == 1000)
    return nanoseconds;
  std::int64_t rest = nanoseconds % page.speed_milli * 1000 + page.speed_milli - 1;
  std::int64_t whole;
  std::int64_t sum;
  if (__builtin_mul_overflow(nanoseconds / page.speed_milli, 1000, &whole) ||
      __builtin_add_overflow(whole, rest / page.speed_milli, &sum))
    return kNoTime;
  return sum;
}

}  // namespace vboard

#endif
