#include "vboard/interposer/core/host.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/interposer/core/device_lock.h"
#include "vboard/interposer/core/device_time.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/opening.h"
#include "vboard/interposer/core/shared_files.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/models/host.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

namespace vboard {

namespace {

// How long a node file's state is believed, in nanoseconds of the PC: a person may edit it at any
// time.
constexpr std::int64_t kBelieved = 10'000'000;

Description &description_of(const OpenFile &file) {
  static_assert(offsetof(Description, file) == 0);
  return *reinterpret_cast<Description *>(const_cast<OpenFile *>(&file));
}

// Time.

BoardTime get_board_time() {
  return current_time();
}

std::int64_t get_board_calendar_time() {
  return current_calendar_time();
}

void store_reset_time(BoardTime when) {
  run_page().reset_time.store(when, std::memory_order_relaxed);
}

BoardTime load_reset_time() {
  return run_page().reset_time.load(std::memory_order_relaxed);
}

// Settings.

const Setting *row_of(const OpenFile &file, std::string_view key) {
  const Setting *row = find_setting(file.model->settings, key);
  return row != nullptr ? row : find_setting(common_settings(), key);
}

std::string_view get_text(const OpenFile &file, std::string_view key) {
  const Setting *row = row_of(file, key);
  return row != nullptr ? setting_of(file.node, *row, key) : std::string_view();
}

std::int64_t get_number(const OpenFile &file, std::string_view key) {
  const Setting *row = row_of(file, key);
  return row != nullptr ? setting_number_of(file.node, *row, key) : 0;
}

int change_node(OpenFile &file, void (*change)(Node &node, void *context), void *context) {
  // What the run itself sees changes even when the board cannot be written.
  change(file.node, context);
  const int result = update_node(file.file, change, context);
  run_page().changes.fetch_add(1, std::memory_order_relaxed);
  return result;
}

struct Change {
  std::string_view key, value;
  bool fits;
};

int store(OpenFile &file, std::string_view key, std::string_view value) {
  Change change = {key, value, true};
  const int result = change_node(
      file,
      [](Node &node, void *context) {
        Change &wanted = *static_cast<Change *>(context);
        wanted.fits = set_node_text(node, wanted.key, wanted.value) && wanted.fits;
      },
      &change);
  return result == 0 && !change.fits ? -E2BIG : result;
}

// Media.

ssize_t read_part(const OpenFile &file, void *out, std::size_t size, std::int64_t offset) {
  return file.medium < 0 ? -ENXIO : sys_pread(file.medium, out, size, offset);
}

ssize_t write_part(const OpenFile &file, const void *bytes, std::size_t size, std::int64_t offset) {
  return file.medium < 0 ? -ENXIO : sys_pwrite(file.medium, bytes, size, offset);
}

std::int64_t size_of_medium(const OpenFile &file) {
  return file.medium < 0 ? 0 : sys_size(file.medium);
}

int resize(const OpenFile &file, std::int64_t size) {
  return file.medium < 0 ? -ENXIO : sys_ftruncate(file.medium, size);
}

void *map(OpenFile &file, std::size_t size) {
  if (file.mapped == nullptr && size_of_medium(file) >= static_cast<std::int64_t>(size)) {
    int error;
    file.mapped =
        sys_mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.medium, 0, error);
    file.mapped_size = size;
  }
  return file.mapped;
}

// The program's memory.

void *pointer_of(std::uint64_t address) {
  return reinterpret_cast<void *>(static_cast<std::uintptr_t>(address));
}

int get_bytes(void *out, std::uint64_t address, std::size_t size) {
  return size == 0 ? 0 : read_user(out, pointer_of(address), size);
}

int put_bytes(std::uint64_t address, const void *bytes, std::size_t size) {
  return size == 0 ? 0 : write_user(pointer_of(address), bytes, size);
}

// Devices.

// A byte of the board's own file, which is never replaced, for each name.
std::int64_t place_of(std::string_view name) {
  return static_cast<std::int64_t>(text_hash(name) >> 2 | std::uint64_t{1} << 32);
}

// The lock goes with the open file, through fork() and exec(), however the processes end: its
// descriptor is kept by exec(), and a program that has not inherited the device drops it
// (drop_stray_claims()).
int claim(OpenFile &file) {
  Description &description = description_of(file);
  const int fd = open_board_mark();
  if (fd < 0)
    return fd;
  if (sys_lock_byte(fd, place_of(description.real)) < 0) {
    sys_close(fd);
    return -EBUSY;
  }
  // The low numbers are the program's: it sees the one that a board would give it.
  description.claim = sys_move_high(fd, kOwnDescriptors, false);
  description.shared->claim = description.claim;
  add_own_descriptor(description.claim);
  return 0;
}

void *memory_of(OpenFile &file, std::size_t size) {
  RunFile *run = run_file();
  if (run == nullptr || size > kSharedDeviceSize)
    return nullptr;
  const std::string_view name = description_of(file).real;
  for (SharedDevice &device : run->devices) {
    if (device.name[0] == '\0')
      copy_text(device.name, name);
    if (device.name == name)
      return device.memory;
  }
  return nullptr;
}

int hand_out(OpenFile &parent, const Model &model, int flags, const void *state, std::size_t size) {
  const Description &from = description_of(parent);
  if (size > kModelState)
    return -EINVAL;
  Description *description = new_description(Kind::kModel, from.asked, from.real, flags);
  if (description == nullptr)
    return -ENFILE;
  OpenFile &file = description->file;
  memcpy(file.file, parent.file, sizeof file.file);
  file.node = parent.node;
  file.model = &model;
  copy_text(description->shared->model, model.name);
  memcpy(file.state, state, size);
  const int fd = open_stand_in(*description->shared, flags);
  const int result = fd < 0 ? fd : attach(description, fd);
  if (result >= 0)
    return fd;
  if (fd >= 0)
    sys_close(fd);
  free_description(description);
  return result;
}

void wake_all(OpenFile &) {
  run_page().changes.fetch_add(1, std::memory_order_relaxed);
}

void work(OpenFile &file, BoardTime duration, Progress progress) {
  take_device_time(description_of(file), duration, progress);
}

constexpr Host kInterposer = {
    .version = kHostVersion,
    .board_time = get_board_time,
    .board_calendar_time = get_board_calendar_time,
    .set_reset_time = store_reset_time,
    .reset_time = load_reset_time,
    .board_directory = board_directory,
    .setting_text = get_text,
    .setting_number = get_number,
    .store_text = store,
    .change_settings = change_node,
    .read_medium = read_part,
    .write_medium = write_part,
    .medium_size = size_of_medium,
    .resize_medium = resize,
    .map_medium = map,
    .copy_in = get_bytes,
    .copy_out = put_bytes,
    .claim_device = claim,
    .device_memory = memory_of,
    .open_child = hand_out,
    .wake = wake_all,
    .take_time = work,
};

}  // namespace

void start_host() {
  host = &kInterposer;
}

void keep_claim(Description &description) {
  description.claim = description.shared->claim;
  if (description.claim > 0)
    add_own_descriptor(description.claim);
}

void drop_stray_claims(std::span<const int> fds) {
  for (const int fd : fds) {
    BoardPath path;
    FileStatus mark;
    FileStatus status;
    if (fd >= kOwnDescriptors && !is_own_descriptor(fd) && sys_fstat(fd, status) == 0 &&
        find_board_file(board_root(), "board", path) == 0 && sys_stat(path.c_str(), mark) == 0 &&
        status.inode == mark.inode && status.filesystem == mark.filesystem)
      sys_close(fd);
  }
}

void look_at_node(Description &description) {
  if (description.kind != Kind::kModel || description.file.file[0] == '\0')
    return;
  const std::uint32_t changes = run_page().changes.load(std::memory_order_relaxed);
  const std::int64_t now = pc_time();
  if (changes == description.seen_changes && now - description.looked_at < kBelieved)
    return;
  description.seen_changes = changes;
  description.looked_at = now;
  FileStatus status;
  if (board_stat(description.file.file, status) < 0 ||
      (status.inode == description.inode && status.changed == description.changed))
    return;
  if (load_node(description.file.file, description.file.node) == 0) {
    description.inode = status.inode;
    description.changed = status.changed;
  }
}

}  // namespace vboard
