// Wraps lseek lseek64 ftruncate ftruncate64 mmap mmap64.

#include "vboard/base/kernel.h"
#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/device_lock.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/core/transfers.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

using namespace vboard;

WRAP(off64_t, lseek64, int fd, off64_t offset, int whence) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr)
    return REAL(lseek64)(fd, offset, whence);
  const std::int64_t result = description->shared != nullptr
                                  ? seek_on_board(*description, offset, whence)
                                  : sys_lseek(fd, offset, whence);
  release(description);
  return report<off64_t>(result);
}

WRAP(int, ftruncate64, int fd, off64_t size) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr)
    return REAL(ftruncate64)(fd, size);
  const bool device = description->kind == Kind::kModel || description->kind == Kind::kAttribute;
  release(description);
  return device ? report(-EINVAL) : REAL(ftruncate64)(fd, size);
}

namespace {

// What the model says of a mapping of its medium.
int may_map(Description &description, std::size_t size, std::int64_t offset) {
  const Model *model = description.file.model;
  if (description.kind != Kind::kModel || model->map == nullptr)
    return 0;
  const DeviceLock lock;
  return model->map(description.file, size, offset);
}

int mapped_descriptor(const Description &description, int fd) {
  return description.shared != nullptr ? description.file.medium : fd;
}

void *map_on_board(Description &description, void *address, std::size_t size, int protection,
                   int flags, int fd, std::int64_t offset, int &error) {
  const Fault *fault = meet_fault(description, "mmap");
  void *result = nullptr;
  const bool shared = (flags & MAP_TYPE) != MAP_PRIVATE;
  const int mode = description.file.flags & O_ACCMODE;
  if (fault != nullptr && fault->effect == FaultEffect::kErrno)
    error = static_cast<int>(-fault->value);
  else if (is_gone(description) ||
           (description.kind == Kind::kModel && description.file.medium < 0))
    error = -ENODEV;
  else if (mode == O_WRONLY || (mode == O_RDONLY && shared && (protection & PROT_WRITE)))
    error = -EACCES;
  else if (size > 0 && (error = may_map(description, size, offset)) < 0)
    result = nullptr;
  else
    result = sys_mmap(address, size, protection, flags, mapped_descriptor(description, fd), offset,
                      error);
  if (tracing()) {
    char rights[4];
    int count = 0;
    if (protection & PROT_READ)
      rights[count++] = 'R';
    if (protection & PROT_WRITE)
      rights[count++] = 'W';
    if (protection & PROT_EXEC)
      rights[count++] = 'X';
    TraceLine line;
    trace_begin(line, "mmap", description.asked);
    trace_number(line, "", static_cast<std::int64_t>(size));
    trace_word(line, {rights, static_cast<std::size_t>(count)});
    trace_hex(line, "at=", static_cast<std::uint64_t>(offset));
    trace_end(line, error, -error);
  }
  spend_call();
  return result;
}

}  // namespace

WRAP(void *, mmap64, void *address, std::size_t size, int protection, int flags, int fd,
     off64_t offset) {
  Description *description = fd >= 0 && on_board() ? acquire(fd) : nullptr;
  if (description == nullptr)
    return REAL(mmap64)(address, size, protection, flags, fd, offset);
  int error = 0;
  void *result = map_on_board(*description, address, size, protection, flags, fd, offset, error);
  release(description);
  if (error == 0)
    return result;
  errno = -error;
  return MAP_FAILED;
}

#if __SIZEOF_POINTER__ == 8
WRAP_ALIAS(lseek, lseek64);
WRAP_ALIAS(ftruncate, ftruncate64);
WRAP_ALIAS(mmap, mmap64);
#else
WRAP(__off_t, lseek, int fd, __off_t offset, int whence) {
  return static_cast<__off_t>(vboard_lseek64(fd, offset, whence));
}
WRAP(int, ftruncate, int fd, __off_t size) {
  return vboard_ftruncate64(fd, size);
}
WRAP(void *, mmap, void *address, std::size_t size, int protection, int flags, int fd,
     __off_t offset) {
  return vboard_mmap64(address, size, protection, flags, fd, offset);
}
#endif
