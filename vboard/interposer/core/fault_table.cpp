#include "vboard/interposer/core/fault_table.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/power_cut.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/models/model.h"

#include <fcntl.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>

namespace vboard {

namespace {

constexpr std::size_t kMostFaults = 256;
constexpr std::size_t kFileSize = 65536;
// How long the faults file is believed, in nanoseconds of the PC: a person may break a device at
// any time.
constexpr std::int64_t kBelieved = 10'000'000;

struct Table {
  Fault faults[kMostFaults];
  std::uint64_t lines[kMostFaults];  // their lines' texts, hashed
  std::atomic<std::uint64_t> met[kMostFaults];
  std::size_t count;
  std::size_t given;  // those of the command line, which come first
};

// The table that is in use and the one before it: a call may still hold a fault of that one.
Table tables[2];
std::atomic<std::uint32_t> generation;  // 0: nothing has been read yet
std::atomic<std::int64_t> looked_at;
FileStatus seen;

Table &table_of(std::uint32_t number) {
  return tables[number % 2];
}

// The launcher reports wrong lines; here they are passed over.
void add_faults(std::string_view text, Table &out) {
  char reason[128];
  std::string_view line;
  while (out.count < kMostFaults && take_line(text, line)) {
    if (parse_fault(line, out.faults[out.count], reason) == FaultLine::kFault)
      out.lines[out.count++] = text_hash(line);
  }
}

void load_file(const char *path, Table &out) {
  const int fd = board_open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return;
  char *text = static_cast<char *>(malloc(kFileSize));
  if (text != nullptr) {
    const ssize_t length = sys_read(fd, text, kFileSize);
    if (length > 0)
      add_faults({text, static_cast<std::size_t>(length)}, out);
    free(text);
  }
  sys_close(fd);
}

// A fault that stays keeps its count.
void keep_counts(const Table &before, Table &out) {
  for (std::size_t i = 0; i < out.count; ++i) {
    std::uint64_t met = 0;
    for (std::size_t old = 0; old < before.count; ++old) {
      if (before.lines[old] == out.lines[i])
        met = before.met[old].load(std::memory_order_relaxed);
    }
    out.met[i].store(met, std::memory_order_relaxed);
  }
}

// Under the board's lock.
void look_at_file() {
  BoardPath path;
  FileStatus status = {};
  if (find_board_file(board_root(), "faults", path) < 0 || board_stat(path.c_str(), status) < 0)
    status = {};
  const std::uint32_t number = generation.load(std::memory_order_relaxed);
  if (number != 0 && status.inode == seen.inode && status.changed == seen.changed &&
      status.size == seen.size)
    return;
  seen = status;
  Table &next = table_of(number + 1);
  next.count = 0;
  // Those of the command line come first: they are meant for this run in particular.
  add_faults(given_faults(), next);
  next.given = next.count;
  load_file(path.c_str(), next);
  keep_counts(table_of(number), next);
  generation.store(number + 1, std::memory_order_release);
}

Table &all_faults() {
  const std::int64_t now = pc_time();
  if (generation.load(std::memory_order_acquire) == 0 ||
      now - looked_at.load(std::memory_order_relaxed) >= kBelieved) {
    lock_board();
    looked_at.store(now, std::memory_order_relaxed);
    look_at_file();
    unlock_board();
  }
  return table_of(generation.load(std::memory_order_acquire));
}

// For the launcher, which reports the faults of its command line that nobody has met.
void note_met(const Table &table, std::size_t index) {
  if (index < table.given && index < 64)
    run_page().faults_met.fetch_or(std::uint64_t{1} << index, std::memory_order_relaxed);
}

bool names_node(const Fault &fault, NodeNames names) {
  return fault_names_node(fault, names.asked) ||
         (names.real != names.asked && fault_names_node(fault, names.real));
}

}  // namespace

std::uint32_t fault_generation() {
  all_faults();
  return generation.load(std::memory_order_relaxed);
}

bool has_faults(NodeNames names) {
  const Table &table = all_faults();
  for (std::size_t i = 0; i < table.count; ++i) {
    if (names_node(table.faults[i], names))
      return true;
  }
  return false;
}

bool is_absent(NodeNames names) {
  const Table &table = all_faults();
  for (std::size_t i = 0; i < table.count; ++i) {
    const Fault &fault = table.faults[i];
    if (fault.effect == FaultEffect::kAbsent && names_node(fault, names) &&
        fault_is_due(fault, 1, current_time())) {
      note_met(table, i);
      return true;
    }
  }
  return false;
}

std::int64_t next_absence(NodeNames names, std::int64_t now) {
  std::int64_t next = kNoTime;
  const Table &table = all_faults();
  for (std::size_t i = 0; i < table.count; ++i) {
    const Fault &fault = table.faults[i];
    if (fault.effect != FaultEffect::kAbsent || !names_node(fault, names))
      continue;
    for (std::size_t window = 0; window < fault.window_count; ++window) {
      if (fault.windows[window].from > now)
        next = std::min(next, fault.windows[window].from);
    }
  }
  return next;
}

const Fault *meet_fault(NodeNames names, const char *call, const char *request,
                        std::uint32_t number) {
  const Fault *first = nullptr;
  Table &table = all_faults();
  for (std::size_t i = 0; i < table.count; ++i) {
    const Fault &fault = table.faults[i];
    if (!fault_names_call(fault, call, request, number) || !names_node(fault, names))
      continue;
    const std::uint64_t nth = table.met[i].fetch_add(1, std::memory_order_relaxed) + 1;
    if (first == nullptr && fault_is_due(fault, nth, current_time())) {
      note_met(table, i);
      first = &fault;
    }
  }
  if (first != nullptr && first->effect == FaultEffect::kPowerCut)
    fail_power_in(call);
  return first;
}

}  // namespace vboard
