#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/fault_table.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/models/model.h"

#include <fcntl.h>
#include <stdlib.h>

#include <atomic>

namespace vboard {

namespace {

constexpr std::size_t kMostFaults = 256;
constexpr std::size_t kFileSize = 65536;

Fault faults[kMostFaults];
std::atomic<std::uint64_t> met[kMostFaults];
std::atomic<std::size_t> fault_count;
std::atomic<bool> loaded;

// The launcher has told about wrong lines; here they are passed over.
void add_faults(std::string_view text, std::size_t &count) {
  char reason[128];
  std::string_view line;
  while (count < kMostFaults && take_line(text, line)) {
    if (parse_fault(line, faults[count], reason) == FaultLine::kFault)
      ++count;
  }
}

void load_file(std::size_t &count) {
  BoardPath path;
  if (find_board_file(board_root(), "faults", path) < 0)
    return;
  const int fd = board_open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return;
  char *text = static_cast<char *>(malloc(kFileSize));
  if (text != nullptr) {
    const ssize_t length = sys_read(fd, text, kFileSize);
    if (length > 0)
      add_faults({text, static_cast<std::size_t>(length)}, count);
    free(text);
  }
  sys_close(fd);
}

std::size_t all_faults() {
  if (!loaded.load(std::memory_order_acquire)) {
    lock_board();
    if (!loaded.load(std::memory_order_relaxed)) {
      std::size_t count = 0;
      // Those of the command line come first: they are meant for this run in particular.
      add_faults(given_faults(), count);
      load_file(count);
      fault_count.store(count, std::memory_order_relaxed);
      loaded.store(true, std::memory_order_release);
    }
    unlock_board();
  }
  return fault_count.load(std::memory_order_relaxed);
}

bool names_node(const Fault &fault, NodeNames names) {
  return fault_names_node(fault, names.asked) ||
         (names.real != names.asked && fault_names_node(fault, names.real));
}

}  // namespace

bool has_faults(NodeNames names) {
  const std::size_t count = all_faults();
  for (std::size_t i = 0; i < count; ++i) {
    if (names_node(faults[i], names))
      return true;
  }
  return false;
}

bool is_absent(NodeNames names) {
  const std::size_t count = all_faults();
  for (std::size_t i = 0; i < count; ++i) {
    if (faults[i].effect == FaultEffect::kAbsent && names_node(faults[i], names) &&
        fault_is_due(faults[i], 1, current_time()))
      return true;
  }
  return false;
}

const Fault *meet_fault(NodeNames names, const char *call, const char *request,
                        std::uint32_t number) {
  const Fault *first = nullptr;
  const std::size_t count = all_faults();
  for (std::size_t i = 0; i < count; ++i) {
    if (!fault_names_call(faults[i], call, request, number) || !names_node(faults[i], names))
      continue;
    const std::uint64_t nth = met[i].fetch_add(1, std::memory_order_relaxed) + 1;
    if (first == nullptr && fault_is_due(faults[i], nth, current_time()))
      first = &faults[i];
  }
  return first;
}

}  // namespace vboard
