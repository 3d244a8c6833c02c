// What a device model is: one row of the model table, and the open file that it works on.
//
// A model runs inside a host: the interposer, in the program under test, or whatever else opens the
// nodes of a board for somebody. The host maps an open of a node to the model that the node's file
// names ("model = rtc"), applies the board's faults, writes the trace, moves what the program's
// pointers name into memory of its own, and only then calls the model. A model therefore knows
// nothing of paths, faults, traces, processes and pointers: it reads its node's settings, answers
// requests and says when it is ready. What it asks of its host is host.h.
//
// Results follow the kernel's convention inside a driver: zero or positive for success, a negated
// errno for failure.

#ifndef VBOARD_INTERPOSER_MODELS_MODEL_H
#define VBOARD_INTERPOSER_MODELS_MODEL_H
#include "vboard/board/node.h"
#include "vboard/board/settings.h"

#include <errno.h>
#include <poll.h>
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

struct Model;

inline constexpr std::size_t kModelState = 1024;

// One open file description. Duplicates of a descriptor share it, and so do the processes that
// inherit one.
struct OpenFile {
  const Model *model;
  char path[256];   // the name on the board: "/dev/lcd"
  char file[4096];  // the node file
  Node node;        // the node file as it stands; the host keeps it up to date between calls
  int flags;        // of open()
  int fd;           // the program's descriptor, or one of them
  int medium;       // the host's descriptor of the medium, -1 without one
  BoardTime opened_at;
  // The model's own, zeroed before open(): plain values, no pointers, since a process that inherits
  // the descriptor finds them at another address.
  void *state;
  // The medium in this process, once map_medium() of host.h was called.
  void *mapped;
  std::size_t mapped_size;
  // The model's own in this process, null before open() and in a process that has just inherited
  // the descriptor: what can be made again from state and medium. The host frees it.
  void *extra;
};

template <typename State>
State &state_of(const OpenFile &file) {
  static_assert(sizeof(State) <= kModelState && alignof(State) <= 16);
  return *static_cast<State *>(file.state);
}

enum class Direction : std::uint8_t {
  kNone,  // the argument is no pointer
  kIn,    // the driver reads the record
  kOut,   // the driver fills the record
  kInOut,
};

// The argument of a request: the program's, and the host's copy of the record that it points to.
struct Argument {
  std::uint32_t number;   // of the request, whole
  std::uint64_t address;  // as the program gave it; an address for copy_in() and copy_out() alone
  void *record;           // aligned; zeros for kOut
  std::size_t size;       // of the record
  bool answers_failure;   // set by the handler: the record goes back although the request fails
};

// A function that answers a request, with the size of the record that it takes.
struct Handler {
  int (*call)(OpenFile &file, Argument &argument);
  std::size_t size;
};

namespace handler {

template <typename Function>
struct Shape;
template <>
struct Shape<int (*)(OpenFile &)> {
  static constexpr std::size_t kSize = 0;
};
template <>
struct Shape<int (*)(OpenFile &, Argument &)> {
  static constexpr std::size_t kSize = 0;
};
template <typename Record>
struct Shape<int (*)(OpenFile &, Record &)> {
  static constexpr std::size_t kSize = sizeof(Record);
  using Type = Record;
};
template <typename Record>
struct Shape<int (*)(OpenFile &, Record &, Argument &)> {
  static constexpr std::size_t kSize = sizeof(Record);
  using Type = Record;
};

template <auto function>
int call(OpenFile &file, Argument &argument) {
  using Function = decltype(function);
  if constexpr (requires { function(file); }) {
    return function(file);
  } else if constexpr (requires { function(file, argument); }) {
    return function(file, argument);
  } else {
    using Record = typename Shape<Function>::Type;
    Record &record = *static_cast<Record *>(argument.record);
    if constexpr (requires { function(file, record, argument); })
      return function(file, record, argument);
    else
      return function(file, record);
  }
}

}  // namespace handler

// The handler of a row: answers<set_timeout>, where set_timeout is one of
//   int set_timeout(OpenFile &file);
//   int set_timeout(OpenFile &file, Record &record);
//   int set_timeout(OpenFile &file, Record &record, Argument &argument);
//   int set_timeout(OpenFile &file, Argument &argument);
// The record's type says how many bytes are copied from and to the program. Several drivers encode
// a wrong size in the number of a request; it does not count.
template <auto function>
inline constexpr Handler answers = {handler::call<function>,
                                    handler::Shape<decltype(function)>::kSize};

// One request of a driver.
struct Request {
  std::uint32_t number;
  const char *name;  // in traces and faults
  Direction direction;
  Handler handler;
  // The number is compared without its size bits, and the record is as long as they say: for
  // requests such as EVIOCGNAME(length). The handler takes an Argument.
  bool any_size = false;
  // The record does not show in traces (it holds addresses).
  bool traced = true;
};

// Memory of the program, to be reached with copy_in() and copy_out() of host.h.
struct UserMemory {
  std::uint64_t address;
  std::size_t size;
};

// Which of the events that were asked for hold, and when that may change by itself.
struct Readiness {
  short events;  // poll()'s: POLLIN, POLLOUT, POLLPRI
  BoardTime next = kNever;
};

// One model. What a model does not say is what most devices do.
struct Model {
  const char *name;
  std::span<const Setting> settings = {};
  std::span<const Request> requests = {};
  // The models of the descriptors that its requests hand out.
  std::span<const Model *const> children = {};
  // The medium's size in bytes, 0 for none. A node with "medium = NAME" opens media/NAME of the
  // board; it is made with this size, filled with `medium_fill`, when it is missing. The setting
  // may have another name.
  std::size_t medium_size = 0;
  unsigned char medium_fill = 0;
  // Without read() or write(): whether these go to the medium, and the errno if not.
  const char *medium_setting = "medium";
  bool medium_is_stream = false;
  int no_stream = EINVAL;
  // write() does its work in pieces, with take_time() of host.h in each.
  bool writes_in_pieces = false;
  // Runs once for an open file, close() with its last descriptor.
  int (*open)(OpenFile &file) = nullptr;
  void (*close)(OpenFile &file) = nullptr;
  // Bytes of a stream, or from the position `at` of a medium. The bytes moved; read() may answer
  // -EAGAIN while ready() says that there is nothing.
  ssize_t (*read)(OpenFile &file, const UserMemory &to, std::int64_t at) = nullptr;
  ssize_t (*write)(OpenFile &file, const UserMemory &from, std::int64_t at) = nullptr;
  // Without it the descriptor is always ready for reading and writing.
  Readiness (*ready)(OpenFile &file, short events, BoardTime now) = nullptr;
  // Whether the bytes from `offset` of the medium may be mapped: 0, or a negated errno.
  int (*map)(OpenFile &file, std::size_t size, std::int64_t offset) = nullptr;
  // A read() of fewer bytes fails with EINVAL at once.
  std::size_t least_read = 0;
};

// The row of a model's request table; null for a request that the driver does not know.
const Request *find_request(const Model &model, std::uint32_t number);

}  // namespace vboard

#endif
