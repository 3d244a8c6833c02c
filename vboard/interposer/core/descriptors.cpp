#include "vboard/interposer/core/descriptors.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/interposer/core/attribute_changes.h"
#include "vboard/interposer/core/device_lock.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/host.h"
#include "vboard/interposer/core/opening.h"
#include "vboard/interposer/core/shared_files.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"
#include "vboard/interposer/models/host.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <iterator>

DECLARE_WRAPPED(int, closedir, DIR *);

namespace vboard {

namespace {

// A null entry is read without a lock: nearly every descriptor of a program is not the board's.
std::atomic<Description *> table[kMostDescriptors];

bool in_table(int fd) {
  return fd >= 0 && fd < kMostDescriptors;
}

// Under the board's lock.
void drop_user(Description *description) {
  if (--description->users == 0)
    free_description(description);
}

}  // namespace

Description *acquire(int fd) {
  if (!in_table(fd) || table[fd].load(std::memory_order_acquire) == nullptr)
    return nullptr;
  lock_board();
  Description *description = table[fd].load(std::memory_order_relaxed);
  if (description != nullptr)
    ++description->users;
  unlock_board();
  return description;
}

void release(Description *description) {
  lock_board();
  drop_user(description);
  unlock_board();
}

bool is_board_descriptor(int fd) {
  return in_table(fd) && table[fd].load(std::memory_order_relaxed) != nullptr;
}

Description *new_description(Kind kind, std::string_view asked, std::string_view real, int flags) {
  Description *description = static_cast<Description *>(calloc(1, sizeof(Description)));
  if (description == nullptr)
    return nullptr;
  description->kind = kind;
  copy_text(description->asked, asked);
  copy_text(description->real, real);
  copy_text(description->file.path, asked);
  description->file.flags = flags;
  description->file.fd = -1;
  description->file.medium = -1;
  description->file.opened_at = current_time();
  if (kind != Kind::kModel && kind != Kind::kAttribute)
    return description;
  SharedFile *shared = new_shared_file();
  if (shared == nullptr) {
    free(description);
    return nullptr;
  }
  description->shared = shared;
  description->file.state = shared->state;
  shared->kind = static_cast<std::uint32_t>(kind);
  shared->changed = 1;  // as nobody has read it yet
  shared->flags = flags;
  shared->opened_at = description->file.opened_at;
  copy_text(shared->asked, asked);
  copy_text(shared->real, real);
  return description;
}

namespace {

// Closes what this process alone has.
void close_own(Description &description) {
  OpenFile &file = description.file;
  if (file.mapped != nullptr)
    sys_munmap(file.mapped, file.mapped_size);
  free(file.extra);
  if (file.medium >= 0) {
    remove_own_descriptor(file.medium);
    sys_close(file.medium);
  }
  if (description.claim > 0) {
    remove_own_descriptor(description.claim);
    sys_close(description.claim);
  }
}

// The last process runs the model's close().
void leave(Description &description) {
  if (description.has_left || description.shared == nullptr)
    return;
  const DeviceLock lock;
  description.has_left = true;
  OpenFile &file = description.file;
  if (leave_shared_file(*description.shared) && file.model != nullptr &&
      file.model->close != nullptr)
    file.model->close(file);
}

}  // namespace

void free_description(Description *description) {
  for (std::size_t i = 0; i < description->layer_count; ++i)
    REAL(closedir)(description->layers[i]);
  close_own(*description);
  if (SharedFile *shared = description->shared) {
    const DeviceLock lock;
    // One that has not come to be a descriptor was never closed.
    const bool was_last =
        description->has_left ? shared->processes == 0 : leave_shared_file(*shared);
    if (was_last)
      free_shared_file(*shared);
  }
  free(description);
}

int attach(Description *description, int fd) {
  if (!in_table(fd))
    return -EMFILE;
  run_page().has_opened.store(1, std::memory_order_relaxed);
  lock_board();
  description->file.fd = fd;
  description->descriptors = 1;
  description->users = 1;
  table[fd].store(description, std::memory_order_release);
  unlock_board();
  return 0;
}

void attach_duplicate(int from, int to) {
  if (!in_table(from) || !in_table(to) || from == to)
    return;
  detach(to);
  lock_board();
  Description *description = table[from].load(std::memory_order_relaxed);
  if (description != nullptr) {
    ++description->descriptors;
    ++description->users;
    table[to].store(description, std::memory_order_release);
  }
  unlock_board();
}

void detach(int fd) {
  if (!is_board_descriptor(fd))
    return;
  lock_board();
  Description *description = table[fd].exchange(nullptr);
  if (description != nullptr) {
    OpenFile &file = description->file;
    if (--description->descriptors == 0) {
      leave(*description);
    } else if (file.fd == fd) {
      // The model's descriptor is gone, a duplicate takes its place.
      for (int other = 0; other < kMostDescriptors; ++other) {
        if (table[other].load(std::memory_order_relaxed) == description) {
          file.fd = other;
          break;
        }
      }
    }
    drop_user(description);
  }
  unlock_board();
}

void set_flags(Description &description, int flags) {
  description.file.flags = flags;
  if (description.shared != nullptr)
    description.shared->flags = flags;
}

bool is_faulty(Description &description) {
  const std::uint32_t now = fault_generation();
  if (description.faults_seen != now) {
    description.faults_seen = now;
    description.faulty = has_faults(names_of(description));
  }
  return description.faulty;
}

bool is_gone(Description &description) {
  return is_faulty(description) && is_absent(names_of(description));
}

const Fault *meet_fault(Description &description, const char *call, const char *request,
                        std::uint32_t number) {
  return is_faulty(description) ? meet_fault(names_of(description), call, request, number)
                                : nullptr;
}

Readiness readiness_of(Description &description, short events, BoardTime now) {
  OpenFile &file = description.file;
  if (is_gone(description))
    return {.events = POLLERR | POLLHUP};
  Readiness ready = {.events = static_cast<short>(events & ~POLLPRI)};
  if (description.kind == Kind::kAttribute) {
    if (has_changed(description))
      ready.events = static_cast<short>(events | POLLERR);
  } else if (file.model != nullptr && file.model->ready != nullptr) {
    const DeviceLock lock;
    look_at_node(description);
    ready = file.model->ready(file, events, now);
    ready.events = static_cast<short>(ready.events & (events | POLLERR | POLLHUP));
  }
  if (description.faulty)
    ready.next = std::min(ready.next, next_absence(names_of(description), now));
  return ready;
}

namespace {

// Calls `visit` with every description of the table that is shared, once.
template <typename Visit>
void each_shared(Visit visit) {
  for (int fd = 0; fd < kMostDescriptors; ++fd) {
    Description *description = table[fd].load(std::memory_order_relaxed);
    if (description != nullptr && description->shared != nullptr && description->file.fd == fd &&
        !description->has_left)
      visit(*description);
  }
}

Description *find_shared(const SharedFile *shared) {
  for (std::atomic<Description *> &entry : table) {
    Description *description = entry.load(std::memory_order_relaxed);
    if (description != nullptr && description->shared == shared)
      return description;
  }
  return nullptr;
}

// The description of a descriptor that was open before this program began. `is_counted`: the
// process is one of those that have it already. Null without memory, and when the board has lost
// its node meanwhile.
Description *inherit(SharedFile &shared, bool is_counted) {
  Description *description = static_cast<Description *>(calloc(1, sizeof(Description)));
  if (description == nullptr)
    return nullptr;
  description->kind = static_cast<Kind>(shared.kind);
  memcpy(description->asked, shared.asked, sizeof shared.asked);
  memcpy(description->real, shared.real, sizeof shared.real);
  description->shared = &shared;
  OpenFile &file = description->file;
  memcpy(file.path, shared.asked, sizeof shared.asked);
  file.flags = shared.flags;
  file.state = shared.state;
  file.opened_at = shared.opened_at;
  file.medium = -1;
  if (!is_counted)
    ++shared.processes;
  if (reopen(*description) >= 0) {
    keep_claim(*description);
    return description;
  }
  free_description(description);
  return nullptr;
}

// Another file of the board: the descriptor is the kernel's own. What it is called on the board,
// without a slash for one of the PC.
std::string_view name_on_board(int fd, BoardPath &buffer) {
  FixedText<40> path;
  append_text(path, "/proc/self/fd/");
  append_decimal(path, fd);
  const ssize_t length = sys_readlink(path.c_str(), buffer.data, sizeof buffer.data);
  const std::string_view name(buffer.data, length > 0 ? static_cast<std::size_t>(length) : 0);
  const std::string_view root = board_root();
  return name.starts_with(root) && name.substr(root.size()).starts_with('/')
             ? name.substr(root.size())
             : std::string_view();
}

void take_inherited_file(int fd) {
  BoardPath buffer;
  const std::string_view name = name_on_board(fd, buffer);
  FileStatus status;
  if (name.empty() || sys_fstat(fd, status) < 0)
    return;
  const Kind kind = S_ISDIR(status.mode) ? Kind::kDirectory : Kind::kFile;
  Description *description = new_description(kind, name, name, sys_flags(fd));
  if (description != nullptr && attach(description, fd) < 0)
    free_description(description);
}

// The shared files that the program before this one in the process had open, as far as they have
// not been found yet.
struct Carried {
  SharedFile *files[kSharedFiles];
  std::size_t count;
};

// What `open` says; nothing when it was written for another process.
void read_carried(std::string_view open, Carried &out) {
  std::int64_t process;
  if (!parse_number(take_word(open), process) || process != getpid())
    return;
  for (std::string_view name = take_word(open); !name.empty(); name = take_word(open)) {
    SharedFile *shared = find_shared_file(name);
    if (shared != nullptr && out.count < std::size(out.files))
      out.files[out.count++] = shared;
  }
}

bool take_carried(Carried &carried, const SharedFile *shared) {
  for (std::size_t i = 0; i < carried.count; ++i) {
    if (carried.files[i] == shared) {
      carried.files[i] = carried.files[--carried.count];
      return true;
    }
  }
  return false;
}

void take_inherited(int fd, Carried &carried) {
  SharedFile *shared = shared_file_behind(fd);
  if (shared == nullptr) {
    // Claims of devices are kept far up, out of the program's way.
    if (fd < kOwnDescriptors)
      take_inherited_file(fd);
    return;
  }
  const DeviceLock lock;
  Description *known = find_shared(shared);
  if (known != nullptr) {
    attach_duplicate(known->file.fd, fd);
  } else if (Description *description = inherit(*shared, take_carried(carried, shared))) {
    if (attach(description, fd) < 0)
      free_description(description);
  }
}

// What exec() has closed.
void close_carried(Carried &carried) {
  for (std::size_t i = 0; i < carried.count; ++i) {
    const DeviceLock lock;
    if (Description *description = inherit(*carried.files[i], true)) {
      leave(*description);
      free_description(description);
    }
  }
}

}  // namespace

void take_inherited_descriptors(std::string_view open) {
  static Carried carried;  // too large for a stack
  carried.count = 0;
  read_carried(open, carried);
  // Listed first: taking one opens others.
  struct Numbers {
    int fds[256];
    std::size_t count;
  } numbers = {};
  each_board_entry(
      "/proc/self/fd",
      [](const char *name, void *context) {
        Numbers &found = *static_cast<Numbers *>(context);
        std::int64_t fd;
        if (parse_number(name, fd) && fd < kMostDescriptors)
          found.fds[found.count++] = static_cast<int>(fd);
        return found.count < std::size(found.fds);
      },
      &numbers);
  for (std::size_t i = 0; i < numbers.count; ++i)
    take_inherited(numbers.fds[i], carried);
  drop_stray_claims({numbers.fds, numbers.count});
  close_carried(carried);
}

void share_with_child() {
  const DeviceLock lock;
  each_shared([](Description &description) { ++description.shared->processes; });
}

void close_all() {
  lock_board();
  each_shared([](Description &description) {
    const DeviceLock lock;
    leave(description);
    // What other threads still do ends with the process: the description itself stays.
    if (description.shared->processes == 0)
      free_shared_file(*description.shared);
  });
  unlock_board();
}

bool list_open(TextBuffer &out) {
  append_decimal(out, getpid());
  const DeviceLock lock;
  each_shared([&](Description &description) {
    append_text(out, " ");
    append_shared_name(out, *description.shared);
  });
  return !out.overflow;
}

}  // namespace vboard
