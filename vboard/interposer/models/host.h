// What a model's host offers it.
//
// The host is a table of functions, so that a model needs nothing of the program that it runs in:
// the interposer is one host, the unit tests are another, and a model in a library of its own gets
// the table when it is loaded. A model calls the functions below, never the table.

#ifndef VBOARD_INTERPOSER_MODELS_HOST_H
#define VBOARD_INTERPOSER_MODELS_HOST_H
#include "vboard/interposer/models/model.h"

#include <stdio.h>
#include <stdlib.h>

#include <string_view>

namespace vboard {

inline constexpr std::uint32_t kHostVersion = 2;

// Which piece of its work a device is at in a call: `done` of `all` pieces are finished.
struct Progress {
  std::uint64_t done = 0, all = 1;
};

struct Host {
  std::uint32_t version;
  BoardTime (*board_time)();
  std::int64_t (*board_calendar_time)();
  void (*set_reset_time)(BoardTime when);
  BoardTime (*reset_time)();
  const char *(*board_directory)();
  std::string_view (*setting_text)(const OpenFile &file, std::string_view key);
  std::int64_t (*setting_number)(const OpenFile &file, std::string_view key);
  int (*store_text)(OpenFile &file, std::string_view key, std::string_view value);
  int (*change_settings)(OpenFile &file, void (*change)(Node &node, void *context), void *context);
  ssize_t (*read_medium)(const OpenFile &file, void *out, std::size_t size, std::int64_t offset);
  ssize_t (*write_medium)(const OpenFile &file, const void *bytes, std::size_t size,
                          std::int64_t offset);
  std::int64_t (*medium_size)(const OpenFile &file);
  int (*resize_medium)(const OpenFile &file, std::int64_t size);
  void *(*map_medium)(OpenFile &file, std::size_t size);
  int (*copy_in)(void *out, std::uint64_t address, std::size_t size);
  int (*copy_out)(std::uint64_t address, const void *bytes, std::size_t size);
  int (*claim_device)(OpenFile &file);
  void *(*device_memory)(OpenFile &file, std::size_t size);
  int (*open_child)(OpenFile &parent, const Model &model, int flags, const void *state,
                    std::size_t size);
  void (*wake)(OpenFile &file);
  void (*take_time)(OpenFile &file, BoardTime duration, Progress progress);
};

// The host of this process; the host sets it before it calls any model.
extern const Host *host;

// Board time, and the board's calendar clock in nanoseconds since 1970.
inline BoardTime board_time() {
  return host->board_time();
}
inline std::int64_t board_calendar_time() {
  return host->board_calendar_time();
}

// A watchdog's time limit: when board time reaches it the run ends with "board reset". kNever
// disarms. It outlives the process (a board whose program has ended is reset all the same).
inline void set_reset_time(BoardTime when) {
  host->set_reset_time(when);
}
// The moment that was set last, also by an earlier run of a board that has not been reset since.
inline BoardTime reset_time() {
  return host->reset_time();
}

// The board directory, an absolute path.
inline const char *board_directory() {
  return host->board_directory();
}

// A setting of the node, by its row in the model's table; a value that is missing or makes no sense
// counts as the row's default. The text lasts until the model returns.
inline std::string_view setting_text(const OpenFile &file, std::string_view key) {
  return host->setting_text(file, key);
}
inline std::int64_t setting_number(const OpenFile &file, std::string_view key) {
  return host->setting_number(file, key);
}
inline bool setting_is_on(const OpenFile &file, std::string_view key) {
  return host->setting_number(file, key) != 0;
}

// Stores one setting in the node's file and in file.node. 0, or a negated errno.
inline int store_text(OpenFile &file, std::string_view key, std::string_view value) {
  return host->store_text(file, key, value);
}
// Several at once: `change` changes the node, and must not do anything else.
inline int change_settings(OpenFile &file, void (*change)(Node &node, void *context),
                           void *context) {
  return host->change_settings(file, change, context);
}
inline int store_number(OpenFile &file, std::string_view key, std::int64_t value) {
  char text[24];
  const int length = snprintf(text, sizeof text, "%lld", static_cast<long long>(value));
  return store_text(file, key, {text, static_cast<std::size_t>(length)});
}

// The bytes moved, or a negated errno. Reading ends with the medium.
inline ssize_t read_medium_part(const OpenFile &file, void *out, std::size_t size,
                                std::int64_t offset) {
  return host->read_medium(file, out, size, offset);
}
// In whole pieces: 0, or a negated errno (EIO for a medium that is too short).
inline int read_medium(const OpenFile &file, void *out, std::size_t size, std::int64_t offset) {
  const ssize_t got = host->read_medium(file, out, size, offset);
  if (got < 0)
    return static_cast<int>(got);
  return static_cast<std::size_t>(got) == size ? 0 : -EIO;
}
inline int write_medium(const OpenFile &file, const void *bytes, std::size_t size,
                        std::int64_t offset) {
  const ssize_t put = host->write_medium(file, bytes, size, offset);
  if (put < 0)
    return static_cast<int>(put);
  return static_cast<std::size_t>(put) == size ? 0 : -EIO;
}
// 0 without a medium.
inline std::int64_t medium_size(const OpenFile &file) {
  return host->medium_size(file);
}
// A larger medium ends in zeros. 0, or a negated errno.
inline int resize_medium(const OpenFile &file, std::int64_t size) {
  return host->resize_medium(file, size);
}
// The first `size` bytes of the medium as memory, for reading and writing; the same place every
// time. Null for a shorter medium, and without memory.
inline void *map_medium(OpenFile &file, std::size_t size) {
  return host->map_medium(file, size);
}
// The whole medium in file.extra, read when it is first asked for; empty without a medium, for one
// above `most` bytes, and without memory.
inline std::string_view load_medium(OpenFile &file, std::size_t most) {
  const std::int64_t size = medium_size(file);
  if (size <= 0 || size > static_cast<std::int64_t>(most))
    return {};
  const std::size_t length = static_cast<std::size_t>(size);
  if (file.extra == nullptr) {
    file.extra = malloc(length);
    if (file.extra == nullptr || read_medium(file, file.extra, length, 0) < 0) {
      free(file.extra);
      file.extra = nullptr;
      return {};
    }
  }
  return {static_cast<const char *>(file.extra), length};
}

// Moves bytes from and to the program's memory: 0, or -EFAULT.
inline int copy_in(void *out, std::uint64_t address, std::size_t size) {
  return host->copy_in(out, address, size);
}
inline int copy_out(std::uint64_t address, const void *bytes, std::size_t size) {
  return host->copy_out(address, bytes, size);
}
// Gives a reader the first bytes of `bytes`, as many as it has room for: their number, or -EFAULT.
inline ssize_t give(const UserMemory &to, const void *bytes, std::size_t size) {
  const std::size_t taken = size < to.size ? size : to.size;
  const int error = copy_out(to.address, bytes, taken);
  return error < 0 ? error : static_cast<ssize_t>(taken);
}

// Lets only one open file use the node, whichever process has it, until it is closed: 0, or -EBUSY
// while another has it.
inline int claim_device(OpenFile &file) {
  return host->claim_device(file);
}

// Memory that all open files of the node share, in every process of the run: zeros at the power-on
// of a run, gone with it. At most kDeviceMemory bytes; every call for a node names the same size.
// Null when the run has no room for another device.
inline constexpr std::size_t kDeviceMemory = 64 << 10;
inline void *device_memory(OpenFile &file, std::size_t size) {
  return host->device_memory(file, size);
}

// A further descriptor that a request hands out: a file of the same node whose model is one of the
// parent's children. Its state begins with the `size` bytes at `state`. The descriptor, or a
// negated errno.
inline int open_child(OpenFile &parent, const Model &model, int flags, const void *state,
                      std::size_t size) {
  return host->open_child(parent, model, flags, state, size);
}

// Lets everybody who waits for a device of the board look again: something has changed that no
// clock brings.
inline void wake(OpenFile &file) {
  host->wake(file);
}

// One piece of the device's own work, such as erasing a block: board time passes for the caller,
// whose signals wait until the model has answered. A model calls it when half of the piece is on
// the medium, for that is what a power cut in it leaves, and does the rest afterwards. Other
// threads and processes go on meanwhile, and a setting's text does not outlast this. Whoever calls
// the same device waits for the end of the piece.
inline void take_time(OpenFile &file, BoardTime duration, Progress progress = {}) {
  host->take_time(file, duration, progress);
}

}  // namespace vboard

// In a library that holds a model of its own ("model = ./libmine.so" in a node file, the library
// beside the node file or by an absolute name): VBOARD_MODEL(kMine) once, in one of its files.
#define VBOARD_MODEL(row)                                                              \
  const vboard::Host *vboard::host;                                                    \
  extern "C" __attribute__((visibility("default"))) const vboard::Model *vboard_model( \
      const vboard::Host *given) {                                                     \
    vboard::host = given;                                                              \
    return given->version == vboard::kHostVersion ? &(row) : nullptr;                  \
  }

#endif
