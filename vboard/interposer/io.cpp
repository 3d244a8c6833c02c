// Wraps read __read_chk readv pread pread64 __pread_chk __pread64_chk preadv preadv64 preadv2 preadv64v2
// write writev pwrite pwrite64 pwritev pwritev64 pwritev2 pwritev64v2 lseek lseek64 ftruncate
// ftruncate64 mmap mmap64.

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "vboard/board/text.h"
#include "vboard/interposer/engine.h"
#include "vboard/interposer/files.h"
#include "vboard/interposer/models/attributes.h"
#include "vboard/interposer/state.h"
#include "vboard/interposer/trace.h"
#include "vboard/interposer/wrap.h"

namespace vboard {

namespace {

// An offset for a model that reads at its position: moves there and back. Model calls are under the
// board's lock, so nobody sees the position in between.
template <typename Call>
ssize_t at_offset(const OpenFile &file, std::int64_t offset, Call call) {
  if (offset == kAtPosition)
    return call();
  std::int64_t kept = sys_lseek(file.fd, 0, SEEK_CUR);
  if (kept < 0 || sys_lseek(file.fd, offset, SEEK_SET) < 0)
    return -ESPIPE;
  ssize_t result = call();
  sys_lseek(file.fd, kept, SEEK_SET);
  return result;
}

ssize_t read_file(int fd, void *buffer, std::size_t size, std::int64_t offset) {
  return offset == kAtPosition ? sys_read(fd, buffer, size) : sys_pread(fd, buffer, size, offset);
}

ssize_t read_model(Description &description, void *buffer, std::size_t size, std::int64_t offset) {
  OpenFile &file = description.file;
  if (file.model->read == nullptr)
    return description.has_medium ? read_file(file.fd, buffer, size, offset) : -EINVAL;
  if (offset != kAtPosition && !description.has_medium)
    return -ESPIPE;
  int memory = check_user(buffer, size, true);
  if (memory < 0)
    return memory;
  for (;;) {
    if (offset == kAtPosition) {
      int waited = wait_readable(description);
      if (waited < 0)
        return waited;
      if (is_gone(description))
        return -ENODEV;
    }
    lock_board();
    ssize_t result =
        at_offset(file, offset, [&] { return file.model->read(file, buffer, size); });
    unlock_board();
    if (result != -EAGAIN || (file.flags & O_NONBLOCK))
      return result;
  }
}

ssize_t write_model(Description &description, const void *buffer, std::size_t size,
                    std::int64_t offset) {
  OpenFile &file = description.file;
  if (file.model->write == nullptr) {
    if (!description.has_medium)
      return -EINVAL;
    return offset == kAtPosition ? sys_write(file.fd, buffer, size)
                                 : sys_pwrite(file.fd, buffer, size, offset);
  }
  if (offset != kAtPosition && !description.has_medium)
    return -ESPIPE;
  int memory = check_user(buffer, size, false);
  if (memory < 0)
    return memory;
  lock_board();
  ssize_t result = at_offset(file, offset, [&] { return file.model->write(file, buffer, size); });
  unlock_board();
  return result;
}

ssize_t write_attribute_file(Description &description, const void *buffer, std::size_t size,
                             std::int64_t offset) {
  int memory = check_user(buffer, size, false);
  if (memory < 0)
    return memory;
  std::int64_t at = offset == kAtPosition ? sys_lseek(description.file.fd, 0, SEEK_CUR) : offset;
  if (at < 0)
    return static_cast<ssize_t>(at);
  lock_board();
  ssize_t result = write_attribute(board_directory(), description.real, buffer, size, at);
  unlock_board();
  if (result > 0 && offset == kAtPosition)
    sys_lseek(description.file.fd, at + result, SEEK_SET);
  return result;
}

bool may(const Description &description, int refused_mode) {
  return (description.file.flags & O_ACCMODE) != refused_mode;
}

ssize_t read_kind(Description &description, void *buffer, std::size_t size, std::int64_t offset) {
  if (!may(description, O_WRONLY))
    return -EBADF;
  if (is_gone(description))
    return -ENODEV;
  switch (description.kind) {
    case Kind::kModel:
      return read_model(description, buffer, size, offset);
    case Kind::kDirectory:
      return -EISDIR;
    default:
      return read_file(description.file.fd, buffer, size, offset);
  }
}

ssize_t write_kind(Description &description, const void *buffer, std::size_t size,
                   std::int64_t offset) {
  if (!may(description, O_RDONLY))
    return -EBADF;
  if (is_gone(description))
    return -ENODEV;
  switch (description.kind) {
    case Kind::kModel:
      return write_model(description, buffer, size, offset);
    case Kind::kAttribute:
      return write_attribute_file(description, buffer, size, offset);
    default:
      return offset == kAtPosition ? sys_write(description.file.fd, buffer, size)
                                   : sys_pwrite(description.file.fd, buffer, size, offset);
  }
}

// What a fault leaves of a transfer.
struct Transfer {
  const Fault *fault;
  std::size_t size;
};

Transfer begin_transfer(Description &description, const char *call, std::size_t size) {
  const Fault *fault = meet_fault(description, call);
  if (fault != nullptr && fault->effect == FaultEffect::kShort &&
      static_cast<std::uint64_t>(fault->value) < size)
    size = static_cast<std::size_t>(fault->value);
  return {fault, size};
}

bool fails(const Transfer &transfer) {
  return transfer.fault != nullptr && transfer.fault->effect == FaultEffect::kErrno;
}

ssize_t shown(const Transfer &transfer, ssize_t result) {
  if (transfer.fault != nullptr && transfer.fault->effect == FaultEffect::kResult && result >= 0)
    return static_cast<ssize_t>(transfer.fault->value);
  return result;
}

void trace_offset(TraceLine &line, std::int64_t offset) {
  if (offset != kAtPosition)
    trace_number(line, "at=", offset);
}

}  // namespace

int wait_readable(Description &description) {
  const Model *model = description.file.model;
  if (model == nullptr || model->readable_at == nullptr)
    return 0;
  if (description.file.flags & O_NONBLOCK)
    return ready_at(description, board_time()) <= board_time() ? 0 : -EAGAIN;
  for (;;) {
    Watch watch = {&description, POLLIN, 0};
    Wait wait;
    wait.watches = &watch;
    wait.watch_count = 1;
    if (wait_on_board(wait) != WaitEnd::kInterrupted)
      return 0;
    if (!handlers_restart())
      return -EINTR;
  }
}

ssize_t read_on_board(Description &description, void *buffer, std::size_t size,
                      std::int64_t offset) {
  Transfer transfer = begin_transfer(description, "read", size);
  ssize_t result = fails(transfer) ? static_cast<ssize_t>(-transfer.fault->value)
                                   : read_kind(description, buffer, transfer.size, offset);
  if (tracing()) {
    std::size_t got = result > 0 ? static_cast<std::size_t>(result) : 0;
    TraceLine line;
    trace_begin(line, "read", description.asked, got);
    trace_offset(line, offset);
    trace_data(line, "out=", buffer, got);
    result = shown(transfer, result);
    trace_end(line, result, static_cast<int>(-result));
  }
  spend_call();
  return shown(transfer, result);
}

ssize_t write_on_board(Description &description, const void *buffer, std::size_t size,
                       std::int64_t offset) {
  Transfer transfer = begin_transfer(description, "write", size);
  // The line is begun first: the buffer may be gone when the call has been made.
  TraceLine line;
  line.text.capacity = 0;
  if (tracing() && check_user(buffer, transfer.size, false) == 0) {
    trace_begin(line, "write", description.asked, transfer.size);
    trace_offset(line, offset);
    trace_data(line, "in=", buffer, transfer.size);
  }
  ssize_t result = fails(transfer) ? static_cast<ssize_t>(-transfer.fault->value)
                                   : write_kind(description, buffer, transfer.size, offset);
  result = shown(transfer, result);
  trace_end(line, result, static_cast<int>(-result));
  spend_call();
  return result;
}

int close_on_board(Description &description) {
  const Fault *fault = meet_fault(description, "close");
  int result = 0;
  if (fault != nullptr && fault->effect == FaultEffect::kErrno)
    result = static_cast<int>(-fault->value);
  if (fault != nullptr && fault->effect == FaultEffect::kResult)
    result = static_cast<int>(fault->value);
  if (description.kind != Kind::kKernelSocket) {
    trace_call("close", description.asked, result, -result);
    spend_call();
  }
  return result;
}

}  // namespace vboard

using namespace vboard;

namespace {

// A read of the kernel's that may wait is a wait like any other: board time may pass meanwhile.
// 0 or -EINTR.
int wait_for_kernel(int fd) {
  if (!jumping())
    return 0;
  int flags = sys_flags(fd);
  if (flags < 0 || (flags & O_NONBLOCK))
    return 0;
  for (;;) {
    pollfd poll_fd = {fd, POLLIN, 0};
    Wait wait;
    wait.fds = &poll_fd;
    wait.fd_count = 1;
    if (wait_on_board(wait) != WaitEnd::kInterrupted)
      return 0;
    if (!handlers_restart())
      return -EINTR;
  }
}

}  // namespace

WRAP(ssize_t, read, int fd, void *buffer, size_t size) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr || description->kind == Kind::kKernelSocket) {
    if (description != nullptr)
      release(description);
    int waited = on_board() ? wait_for_kernel(fd) : 0;
    return waited < 0 ? report(static_cast<ssize_t>(waited)) : REAL(read)(fd, buffer, size);
  }
  ssize_t result = read_on_board(*description, buffer, size, kAtPosition);
  release(description);
  return report(result);
}

WRAP(ssize_t, __read_chk, int fd, void *buffer, size_t size, size_t room) {
  if (size > room)
    return REAL(__read_chk)(fd, buffer, size, room);
  return vboard_read(fd, buffer, size);
}

WRAP(ssize_t, pread64, int fd, void *buffer, size_t size, off64_t offset) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr)
    return REAL(pread64)(fd, buffer, size, offset);
  ssize_t result = offset < 0 ? -EINVAL : read_on_board(*description, buffer, size, offset);
  release(description);
  return report(result);
}

WRAP(ssize_t, __pread64_chk, int fd, void *buffer, size_t size, off64_t offset, size_t room) {
  if (size > room)
    return REAL(__pread64_chk)(fd, buffer, size, offset, room);
  return vboard_pread64(fd, buffer, size, offset);
}

WRAP(ssize_t, write, int fd, const void *buffer, size_t size) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr || description->kind == Kind::kKernelSocket) {
    if (description != nullptr)
      release(description);
    return REAL(write)(fd, buffer, size);
  }
  ssize_t result = write_on_board(*description, buffer, size, kAtPosition);
  release(description);
  return report(result);
}

WRAP(ssize_t, pwrite64, int fd, const void *buffer, size_t size, off64_t offset) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr)
    return REAL(pwrite64)(fd, buffer, size, offset);
  ssize_t result = offset < 0 ? -EINVAL : write_on_board(*description, buffer, size, offset);
  release(description);
  return report(result);
}

#if __SIZEOF_POINTER__ == 8
WRAP_ALIAS(pread, pread64);
WRAP_ALIAS(__pread_chk, __pread64_chk);
WRAP_ALIAS(pwrite, pwrite64);
#else
WRAP(ssize_t, pread, int fd, void *buffer, size_t size, __off_t offset) {
  return vboard_pread64(fd, buffer, size, offset);
}
WRAP(ssize_t, pwrite, int fd, const void *buffer, size_t size, __off_t offset) {
  return vboard_pwrite64(fd, buffer, size, offset);
}
#endif

// --- Scattered transfers ------------------------------------------------------------------------

namespace {

// A driver sees one call for each piece, until one comes back short. A negative offset is the
// position. Errors count only when nothing has been moved before.
template <typename Transfer>
ssize_t each_piece(const iovec *pieces, int count, off64_t offset, Transfer transfer) {
  ssize_t total = 0;
  for (int i = 0; i < count; i++) {
    ssize_t moved = transfer(pieces[i], offset < 0 ? offset : offset + total);
    if (moved < 0)
      return total > 0 ? total : moved;
    total += moved;
    if (static_cast<size_t>(moved) < pieces[i].iov_len)
      break;
  }
  return total;
}

ssize_t read_pieces(int fd, const iovec *pieces, int count, off64_t offset) {
  return each_piece(pieces, count, offset, [fd](const iovec &piece, off64_t at) {
    return at < 0 ? vboard_read(fd, piece.iov_base, piece.iov_len)
                  : vboard_pread64(fd, piece.iov_base, piece.iov_len, at);
  });
}

ssize_t write_pieces(int fd, const iovec *pieces, int count, off64_t offset) {
  return each_piece(pieces, count, offset, [fd](const iovec &piece, off64_t at) {
    return at < 0 ? vboard_write(fd, piece.iov_base, piece.iov_len)
                  : vboard_pwrite64(fd, piece.iov_base, piece.iov_len, at);
  });
}

bool is_boards(int fd) {
  return on_board() && is_board_descriptor(fd);
}

}  // namespace

WRAP(ssize_t, readv, int fd, const iovec *pieces, int count) {
  return is_boards(fd) ? read_pieces(fd, pieces, count, -1) : REAL(readv)(fd, pieces, count);
}

WRAP(ssize_t, writev, int fd, const iovec *pieces, int count) {
  return is_boards(fd) ? write_pieces(fd, pieces, count, -1) : REAL(writev)(fd, pieces, count);
}

WRAP(ssize_t, preadv64, int fd, const iovec *pieces, int count, off64_t offset) {
  if (!is_boards(fd))
    return REAL(preadv64)(fd, pieces, count, offset);
  return offset < 0 ? report<ssize_t>(-EINVAL) : read_pieces(fd, pieces, count, offset);
}

WRAP(ssize_t, pwritev64, int fd, const iovec *pieces, int count, off64_t offset) {
  if (!is_boards(fd))
    return REAL(pwritev64)(fd, pieces, count, offset);
  return offset < 0 ? report<ssize_t>(-EINVAL) : write_pieces(fd, pieces, count, offset);
}

// With flags, an offset of -1 is the position.
WRAP(ssize_t, preadv64v2, int fd, const iovec *pieces, int count, off64_t offset, int flags) {
  return is_boards(fd) ? read_pieces(fd, pieces, count, offset)
                       : REAL(preadv64v2)(fd, pieces, count, offset, flags);
}

WRAP(ssize_t, pwritev64v2, int fd, const iovec *pieces, int count, off64_t offset, int flags) {
  return is_boards(fd) ? write_pieces(fd, pieces, count, offset)
                       : REAL(pwritev64v2)(fd, pieces, count, offset, flags);
}

#if __SIZEOF_POINTER__ == 8
WRAP_ALIAS(preadv, preadv64);
WRAP_ALIAS(pwritev, pwritev64);
WRAP_ALIAS(preadv2, preadv64v2);
WRAP_ALIAS(pwritev2, pwritev64v2);
#else
WRAP(ssize_t, preadv, int fd, const iovec *pieces, int count, __off_t offset) {
  return vboard_preadv64(fd, pieces, count, offset);
}
WRAP(ssize_t, pwritev, int fd, const iovec *pieces, int count, __off_t offset) {
  return vboard_pwritev64(fd, pieces, count, offset);
}
WRAP(ssize_t, preadv2, int fd, const iovec *pieces, int count, __off_t offset, int flags) {
  return vboard_preadv64v2(fd, pieces, count, offset, flags);
}
WRAP(ssize_t, pwritev2, int fd, const iovec *pieces, int count, __off_t offset, int flags) {
  return vboard_pwritev64v2(fd, pieces, count, offset, flags);
}
#endif

// --- Positions, sizes, mappings -----------------------------------------------------------------

WRAP(off64_t, lseek64, int fd, off64_t offset, int whence) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr)
    return REAL(lseek64)(fd, offset, whence);
  bool stream = description->kind == Kind::kModel && !description->has_medium;
  release(description);
  return stream ? report<off64_t>(-ESPIPE) : report<off64_t>(sys_lseek(fd, offset, whence));
}

WRAP(int, ftruncate64, int fd, off64_t size) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr)
    return REAL(ftruncate64)(fd, size);
  bool device = description->kind == Kind::kModel || description->kind == Kind::kAttribute;
  release(description);
  return device ? report(-EINVAL) : REAL(ftruncate64)(fd, size);
}

namespace {

void *map_on_board(Description &description, void *address, std::size_t size, int protection,
                   int flags, int fd, std::int64_t offset, int &error) {
  const Fault *fault = meet_fault(description, "mmap");
  void *result = nullptr;
  bool shared = (flags & MAP_TYPE) != MAP_PRIVATE;
  int mode = description.file.flags & O_ACCMODE;
  if (fault != nullptr && fault->effect == FaultEffect::kErrno) {
    error = static_cast<int>(-fault->value);
  } else if (is_gone(description) || (description.kind == Kind::kModel && !description.has_medium)) {
    error = -ENODEV;
  } else if (mode == O_WRONLY || (mode == O_RDONLY && shared && (protection & PROT_WRITE))) {
    error = -EACCES;
  } else {
    result = sys_mmap(address, size, protection, flags, fd, offset, error);
  }
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

WRAP(void *, mmap64, void *address, size_t size, int protection, int flags, int fd,
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
WRAP(void *, mmap, void *address, size_t size, int protection, int flags, int fd, __off_t offset) {
  return vboard_mmap64(address, size, protection, flags, fd, offset);
}
#endif
