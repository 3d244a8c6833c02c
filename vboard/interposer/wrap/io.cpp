// Wraps read __read_chk readv pread pread64 __pread_chk __pread64_chk preadv preadv64 preadv2
// preadv64v2 write writev pwrite pwrite64 pwritev pwritev64 pwritev2 pwritev64v2.

#include "vboard/base/kernel.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/jumping.h"
#include "vboard/interposer/core/kernel_waits.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/story.h"
#include "vboard/interposer/core/transfers.h"
#include "vboard/interposer/core/wrap.h"
#include "vboard/interposer/wrap/socket_waits.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>

using namespace vboard;

DECLARE_WRAPPED(ssize_t, write, int, const void *, std::size_t);

WRAP(ssize_t, read, int fd, void *buffer, std::size_t size) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr || description->kind == Kind::kKernelSocket) {
    if (description != nullptr)
      release(description);
    if (size > 0 && waits_as_socket(fd)) {
      const iovec piece = {buffer, size};
      msghdr message = message_of(&piece, 1);
      return receive_on_socket(fd, message, 0);
    }
    const int waited = on_board() ? await_kernel(fd, POLLIN, "read") : 0;
    return waited < 0 ? report(static_cast<ssize_t>(waited)) : REAL(read)(fd, buffer, size);
  }
  const ssize_t result = read_on_board(*description, buffer, size, kAtPosition);
  release(description);
  return report(result);
}

WRAP(ssize_t, __read_chk, int fd, void *buffer, std::size_t size, std::size_t room) {
  if (size > room)
    return REAL(__read_chk)(fd, buffer, size, room);
  return vboard_read(fd, buffer, size);
}

WRAP(ssize_t, pread64, int fd, void *buffer, std::size_t size, off64_t offset) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr)
    return REAL(pread64)(fd, buffer, size, offset);
  const ssize_t result = offset < 0 ? -EINVAL : read_on_board(*description, buffer, size, offset);
  release(description);
  return report(result);
}

WRAP(ssize_t, __pread64_chk, int fd, void *buffer, std::size_t size, off64_t offset,
     std::size_t room) {
  if (size > room)
    return REAL(__pread64_chk)(fd, buffer, size, offset, room);
  return vboard_pread64(fd, buffer, size, offset);
}

namespace {

// A story notes where a text on the standard streams belongs.
template <typename Write>
ssize_t write_in_place(int fd, Write write) {
  const bool noted = on_board() && telling() && (fd == STDOUT_FILENO || fd == STDERR_FILENO);
  if (noted)
    tell_streams();
  const ssize_t result = write();
  if (noted)
    tell_streams();
  return result;
}

}  // namespace

namespace {

ssize_t write_to_kernel(int fd, const void *buffer, std::size_t size) {
  const int waited = await_kernel(fd, POLLOUT, "write");
  return waited < 0 ? report(static_cast<ssize_t>(waited)) : REAL(write)(fd, buffer, size);
}

ssize_t write_in_pieces(int fd, const void *buffer, std::size_t size) {
  const char *bytes = static_cast<const char *>(buffer);
  std::size_t done = 0;
  while (done < size) {
    const ssize_t moved = write_to_kernel(fd, bytes + done, std::min(size - done, kPipePiece));
    if (moved <= 0)
      return done > 0 ? static_cast<ssize_t>(done) : moved;
    done += static_cast<std::size_t>(moved);
  }
  return static_cast<ssize_t>(done);
}

// In a jumping run a write may have to wait for its reader, and one that prints on and on gets on.
ssize_t write_in_turn(int fd, const void *buffer, std::size_t size) {
  if (fd == STDOUT_FILENO || fd == STDERR_FILENO)
    spend_poll();
  if (leads_outside(fd)) {
    const HaltedTime halted(true);
    return REAL(write)(fd, buffer, size);
  }
  return goes_in_pieces(fd, size) ? write_in_pieces(fd, buffer, size)
                                  : write_to_kernel(fd, buffer, size);
}

}  // namespace

WRAP(ssize_t, write, int fd, const void *buffer, std::size_t size) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr || description->kind == Kind::kKernelSocket) {
    if (description != nullptr)
      release(description);
    return write_in_place(fd, [&] {
      const iovec piece = {const_cast<void *>(buffer), size};
      if (waits_as_socket(fd))
        return send_on_socket(fd, message_of(&piece, 1), 0);
      return on_board() && jumping() ? write_in_turn(fd, buffer, size)
                                     : REAL(write)(fd, buffer, size);
    });
  }
  const ssize_t result = write_on_board(*description, buffer, size, kAtPosition);
  release(description);
  return report(result);
}

WRAP(ssize_t, pwrite64, int fd, const void *buffer, std::size_t size, off64_t offset) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description == nullptr)
    return REAL(pwrite64)(fd, buffer, size, offset);
  const ssize_t result = offset < 0 ? -EINVAL : write_on_board(*description, buffer, size, offset);
  release(description);
  return report(result);
}

#if __SIZEOF_POINTER__ == 8
WRAP_ALIAS(pread, pread64);
WRAP_ALIAS(__pread_chk, __pread64_chk);
WRAP_ALIAS(pwrite, pwrite64);
#else
WRAP(ssize_t, pread, int fd, void *buffer, std::size_t size, __off_t offset) {
  return vboard_pread64(fd, buffer, size, offset);
}
WRAP(ssize_t, __pread_chk, int fd, void *buffer, std::size_t size, __off_t offset,
     std::size_t room) {
  return vboard___pread64_chk(fd, buffer, size, offset, room);
}
WRAP(ssize_t, pwrite, int fd, const void *buffer, std::size_t size, __off_t offset) {
  return vboard_pwrite64(fd, buffer, size, offset);
}
#endif

namespace {

// A driver sees one call for each piece, until one comes back short. A negative offset is the
// position. Errors count only when nothing has been moved before.
template <typename Transfer>
ssize_t each_piece(const iovec *pieces, int count, off64_t offset, Transfer transfer) {
  ssize_t total = 0;
  for (int i = 0; i < count; ++i) {
    const ssize_t moved = transfer(pieces[i], offset < 0 ? offset : offset + total);
    if (moved < 0)
      return total > 0 ? total : moved;
    total += moved;
    if (static_cast<std::size_t>(moved) < pieces[i].iov_len)
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

// Whether readv() and writev() wait for a socket. What the kernel refuses is left to it.
bool is_socket_list(int fd, int count) {
  return count > 0 && count <= IOV_MAX && waits_as_socket(fd);
}

}  // namespace

WRAP(ssize_t, readv, int fd, const iovec *pieces, int count) {
  if (is_boards(fd))
    return read_pieces(fd, pieces, count, -1);
  if (!is_socket_list(fd, count))
    return REAL(readv)(fd, pieces, count);
  msghdr message = message_of(pieces, static_cast<std::size_t>(count));
  return receive_on_socket(fd, message, 0);
}

WRAP(ssize_t, writev, int fd, const iovec *pieces, int count) {
  if (is_boards(fd))
    return write_pieces(fd, pieces, count, -1);
  return write_in_place(fd, [&] {
    return is_socket_list(fd, count)
               ? send_on_socket(fd, message_of(pieces, static_cast<std::size_t>(count)), 0)
               : REAL(writev)(fd, pieces, count);
  });
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
