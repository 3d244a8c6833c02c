// What a device model is: one row of function pointers, and the open file that they work on.
//
// A model lives inside the program under test. The interposer maps an open of a node of the board
// to the model that the node's file names ("model = rtc"), applies the board's faults, writes the
// trace, and only then calls the model. A model therefore knows nothing of paths, faults, traces or
// clocks other than the board's: it reads its node's settings, answers requests and says when a
// descriptor becomes ready.
//
// Results follow the kernel's convention inside a driver: zero or positive for success, a negated
// errno for failure. The interposer turns it into -1 and errno.

#ifndef VBOARD_INTERPOSER_MODELS_MODEL_H
#define VBOARD_INTERPOSER_MODELS_MODEL_H

#include "vboard/board/node.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace vboard {

// Board time in nanoseconds since the run began. Every wait, timer and model counts in it; how fast
// it passes, or whether it jumps, is the run's business.
using BoardTime = std::int64_t;
inline constexpr BoardTime kNever = INT64_MAX;
inline constexpr BoardTime kSecond = 1'000'000'000;

enum class Direction : std::uint8_t {
  kNone,  // the argument is no pointer
  kIn,    // the driver reads the record
  kOut,   // the driver fills the record
  kInOut,
};

// One request of a driver: its name in traces and faults, and how many bytes stand behind the
// pointer (the size that a request number encodes is wrong for several drivers of the board).
struct Request {
  std::uint32_t number;
  const char *name;
  std::size_t size;
  Direction direction;
};

struct Model;

// One open file description. Duplicates of a descriptor share it; close() runs with the last one.
struct OpenFile {
  const Model *model;
  char path[128];  // the name on the board: "/dev/lcd"
  char file[256];  // the node file behind it
  Node node;       // the node file as it stood at the open
  int flags;       // of open()
  int fd;          // the kernel's descriptor behind it: the medium, or an empty stand-in
  BoardTime opened_at;
  alignas(16) unsigned char state[256];  // zeroed before open(); the model's own
  void *extra;  // zeroed before open(); for what does not fit; close() frees it
};

template <typename State>
State &state_of(OpenFile &file) {
  static_assert(sizeof(State) <= sizeof file.state && alignof(State) <= 16);
  return *static_cast<State *>(static_cast<void *>(file.state));
}

// Every pointer may be null: open and close then succeed, read and write fail with EINVAL (on a
// node with a medium they go to the medium), ioctl with ENOTTY, and the descriptor is always ready.
struct Model {
  const char *name;
  std::span<const Request> requests;
  // The medium's size in bytes, 0 for none. A node with "medium = NAME" opens media/NAME of the
  // board; it is made with this size, filled with `medium_fill`, when it is missing.
  std::size_t medium_size;
  unsigned char medium_fill;
  int (*open)(OpenFile &file);
  void (*close)(OpenFile &file);
  ssize_t (*read)(OpenFile &file, void *buffer, std::size_t size);
  ssize_t (*write)(OpenFile &file, const void *buffer, std::size_t size);
  // `argument` has been checked to be readable and writable as `requests` says.
  int (*ioctl)(OpenFile &file, std::uint32_t request, void *argument);
  // When the descriptor is ready for reading: a time not later than `now` is "now", kNever is
  // never.
  BoardTime (*readable_at)(OpenFile &file, BoardTime now);
  // Whether the bytes from `offset` of the medium may be mapped: 0, or a negated errno.
  int (*map)(OpenFile &file, std::size_t size, std::int64_t offset) = nullptr;
};

// Every model, in one table (models.cpp); null for an unknown name.
const Model *find_model(const char *name);

// What the interposer offers to models.
//
// Models reach the kernel only through kernel.h (sys_pread(), sys_mmap(), ...): libc's own names
// are the interposer's inside this library.

// Stores one setting in the node's file and in file.node. 0, or a negated errno.
int store_text(OpenFile &file, std::string_view key, std::string_view value);
int store_number(OpenFile &file, std::string_view key, std::int64_t value);

// The board directory, an absolute path.
const char *board_directory();
BoardTime board_time();
// The board's calendar clock in nanoseconds since 1970, as clock_gettime(CLOCK_REALTIME) shows it.
std::int64_t board_calendar_time();
// A watchdog's time limit: when board time reaches it the run ends with "board reset". kNever
// disarms. It outlives the process (a board whose program has ended is reset all the same).
void set_reset_time(BoardTime when);
// The moment that was set last, also by an earlier run of a board that has not been reset since.
BoardTime reset_time();

}  // namespace vboard

#endif
