#include "vboard/interposer/core/descriptors.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include <atomic>

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
  description->file.opened_at = board_time();
  description->faulty = has_faults(names_of(*description));
  return description;
}

void free_description(Description *description) {
  for (std::size_t i = 0; i < description->layer_count; ++i)
    REAL(closedir)(description->layers[i]);
  free(description);
}

int attach(Description *description, int fd) {
  if (!in_table(fd))
    return -EMFILE;
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
      if (file.model != nullptr && file.model->close != nullptr && !description->inherited)
        file.model->close(file);
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

bool is_gone(const Description &description) {
  return description.faulty && is_absent(names_of(description));
}

const Fault *meet_fault(const Description &description, const char *call, const char *request,
                        std::uint32_t number) {
  return description.faulty ? meet_fault(names_of(description), call, request, number) : nullptr;
}

BoardTime ready_at(Description &description, BoardTime now) {
  OpenFile &file = description.file;
  if (file.model == nullptr || file.model->readable_at == nullptr)
    return now;
  lock_board();
  const BoardTime at = file.model->readable_at(file, now);
  unlock_board();
  return at;
}

void close_all() {
  lock_board();
  for (int fd = 0; fd < kMostDescriptors; ++fd) {
    Description *description = table[fd].load(std::memory_order_relaxed);
    if (description == nullptr || description->kind != Kind::kModel || description->inherited)
      continue;
    OpenFile &file = description->file;
    description->inherited = true;  // closed now; a duplicate must not be closed again
    if (file.model->close != nullptr)
      file.model->close(file);
  }
  unlock_board();
}

void mark_inherited() {
  for (std::atomic<Description *> &entry : table) {
    Description *description = entry.load(std::memory_order_relaxed);
    if (description != nullptr)
      description->inherited = true;
  }
}

int stand_in(int flags) {
  const int fd = sys_open("/dev/null", O_RDWR | (flags & O_CLOEXEC));
  return fd >= 0 ? fd : sys_memfd("vboard", flags & O_CLOEXEC ? MFD_CLOEXEC : 0);
}

}  // namespace vboard
