#include "vboard/interposer/wrap/socket_waits.h"

#include "vboard/base/kernel.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

DECLARE_WRAPPED(int, getsockopt, int, int, int, void *, socklen_t *);
DECLARE_WRAPPED(int, setsockopt, int, int, int, const void *, socklen_t);
DECLARE_WRAPPED(ssize_t, recvmsg, int, msghdr *, int);
DECLARE_WRAPPED(ssize_t, sendmsg, int, const msghdr *, int);
DECLARE_WRAPPED(int, accept4, int, sockaddr *, socklen_t *, int);
DECLARE_WRAPPED(int, connect, int, const sockaddr *, socklen_t);

namespace vboard {

namespace {

// The kernel's records of a limit: with the machine's own width, and with 64 bits.
struct ShortLimit {
  long seconds, microseconds;
};
struct LongLimit {
  std::int64_t seconds, microseconds;
};

// How long a call that cannot be polled for waits until it tries again, in board time.
constexpr BoardTime kTryAgain = 1'000'000;

int option_of(int fd, int option) {
  int value = -1;
  socklen_t size = sizeof value;
  const int kept = errno;
  REAL(getsockopt)(fd, SOL_SOCKET, option, &value, &size);
  errno = kept;
  return value;
}

// The moment at which a call that begins now gives up.
BoardTime limit_of(int fd, int option) {
  ShortLimit limit = {};
  socklen_t size = sizeof limit;
  if (REAL(getsockopt)(fd, SOL_SOCKET, option, &limit, &size) != 0 ||
      (limit.seconds == 0 && limit.microseconds == 0))
    return kNever;
  return deadline_after(saturated_nanoseconds(limit.seconds, BoardTime{limit.microseconds} * 1000));
}

// Waits for the socket, or for the next try where `events` is 0. 0, or a negated errno. A call with
// a limit does not go on after a signal, whatever the handlers ask for.
int wait_for_socket(int fd, short events, BoardTime deadline) {
  pollfd one = {fd, events, 0};
  Wait wait;
  wait.fds = &one;
  wait.fd_count = events != 0 ? 1 : 0;
  wait.deadline = events != 0 ? deadline : std::min(deadline, deadline_after(kTryAgain));
  const WaitEnd end = wait_on_board(wait);
  if (end == WaitEnd::kInterrupted)
    return deadline == kNever && handlers_restart() ? 0 : -EINTR;
  return current_time() >= deadline ? -EAGAIN : 0;
}

// Calls `transfer` until the kernel does not put it off any more.
template <typename Transfer>
ssize_t transfer_by(int fd, short events, BoardTime deadline, Transfer transfer) {
  // A socket may be ready and refuse all the same: a datagram's receiver has no room.
  bool was_ready = false;
  for (;;) {
    const ssize_t result = transfer();
    if (result >= 0 || errno != EAGAIN)
      return result;
    const int waited = wait_for_socket(fd, was_ready ? short{0} : events, deadline);
    if (waited == -EAGAIN) {
      const ssize_t last = transfer();
      return last >= 0 || errno != EAGAIN ? last : report<ssize_t>(waited);
    }
    if (waited < 0)
      return report<ssize_t>(waited);
    was_ready = !was_ready;
  }
}

// What is left of a message's pieces: a stream's transfer may take several calls.
struct Rest {
  msghdr message;
  std::size_t size;
  iovec pieces[IOV_MAX];
};

void begin_rest(Rest &rest, const msghdr &whole) {
  rest.message = whole;
  rest.message.msg_iov = rest.pieces;
  rest.message.msg_iovlen = std::min<std::size_t>(whole.msg_iovlen, IOV_MAX);
  // They go with the first part.
  rest.message.msg_control = nullptr;
  rest.message.msg_controllen = 0;
  memcpy(rest.pieces, whole.msg_iov, rest.message.msg_iovlen * sizeof(iovec));
  rest.size = 0;
  for (std::size_t i = 0; i < rest.message.msg_iovlen; ++i)
    rest.size += rest.pieces[i].iov_len;
}

void advance(Rest &rest, std::size_t count) {
  rest.size -= count;
  while (count > 0) {
    iovec &piece = *rest.message.msg_iov;
    const std::size_t taken = std::min(count, piece.iov_len);
    piece.iov_base = static_cast<char *>(piece.iov_base) + taken;
    piece.iov_len -= taken;
    count -= taken;
    if (piece.iov_len == 0 && rest.message.msg_iovlen > 1) {
      ++rest.message.msg_iov;
      --rest.message.msg_iovlen;
    }
  }
}

bool is_stream(int fd) {
  return option_of(fd, SO_TYPE) == SOCK_STREAM;
}

}  // namespace

bool waits_as_socket(int fd, int flags) {
  if (!on_board() || !jumping() || (flags & (MSG_DONTWAIT | MSG_ERRQUEUE | MSG_OOB)) != 0)
    return false;
  const int open_flags = sys_flags(fd);
  return open_flags >= 0 && (open_flags & O_NONBLOCK) == 0 && option_of(fd, SO_TYPE) >= 0;
}

ssize_t receive_on_socket(int fd, msghdr &message, int flags) {
  const BoardTime deadline = limit_of(fd, SO_RCVTIMEO_OLD);
  auto receive = [&](msghdr &part) {
    return transfer_by(fd, POLLIN, deadline,
                       [&] { return REAL(recvmsg)(fd, &part, flags | MSG_DONTWAIT); });
  };
  const ssize_t first = receive(message);
  if (first <= 0 || (flags & MSG_WAITALL) == 0 || (flags & MSG_PEEK) != 0 || !is_stream(fd))
    return first;
  // All of the pieces are to be filled.
  Rest rest;
  begin_rest(rest, message);
  ssize_t total = first;
  advance(rest, static_cast<std::size_t>(first));
  while (rest.size > 0) {
    const ssize_t more = receive(rest.message);
    if (more <= 0)
      break;
    total += more;
    advance(rest, static_cast<std::size_t>(more));
  }
  return total;
}

ssize_t send_on_socket(int fd, const msghdr &message, int flags) {
  const BoardTime deadline = limit_of(fd, SO_SNDTIMEO_OLD);
  auto send = [&](const msghdr &part, int more_flags) {
    return transfer_by(fd, POLLOUT, deadline,
                       [&] { return REAL(sendmsg)(fd, &part, flags | more_flags | MSG_DONTWAIT); });
  };
  const ssize_t first = send(message, 0);
  if (first <= 0 || !is_stream(fd))
    return first;
  Rest rest;
  begin_rest(rest, message);
  ssize_t total = first;
  advance(rest, static_cast<std::size_t>(first));
  while (rest.size > 0) {
    // Some of it has gone: the call succeeds, and raises no signal.
    const ssize_t more = send(rest.message, MSG_NOSIGNAL);
    if (more <= 0)
      break;
    total += more;
    advance(rest, static_cast<std::size_t>(more));
  }
  return total;
}

int accept_on_socket(int fd, sockaddr *address, socklen_t *size, int flags) {
  const BoardTime deadline = limit_of(fd, SO_RCVTIMEO_OLD);
  const int waited = wait_for_socket(fd, POLLIN, deadline);
  return waited < 0 ? report(waited) : REAL(accept4)(fd, address, size, flags);
}

int connect_socket(int fd, const sockaddr *address, socklen_t size) {
  const BoardTime deadline = limit_of(fd, SO_SNDTIMEO_OLD);
  // There is nothing to poll for while the other side's queue is full.
  return static_cast<int>(transfer_by(fd, 0, deadline, [&] {
    const int flags = sys_flags(fd);
    syscall(SYS_fcntl, fd, F_SETFL, flags | O_NONBLOCK);
    const int result = REAL(connect)(fd, address, size);
    const int error = errno;
    syscall(SYS_fcntl, fd, F_SETFL, flags);
    errno = error;
    return ssize_t{result};
  }));
}

namespace {

bool is_scaled(int level, int option) {
  return level == SOL_SOCKET && !jumping() && run_page().speed_milli != 1000 &&
         (option == SO_RCVTIMEO_OLD || option == SO_SNDTIMEO_OLD || option == SO_RCVTIMEO_NEW ||
          option == SO_SNDTIMEO_NEW);
}

// The kernel is always asked by the machine's own record: emulators know no other.
int short_option(int option) {
  return option == SO_RCVTIMEO_NEW   ? SO_RCVTIMEO_OLD
         : option == SO_SNDTIMEO_NEW ? SO_SNDTIMEO_OLD
                                     : option;
}

// In microseconds. No limit, and one that the kernel refuses, stay as they are.
LongLimit convert(const LongLimit &from, BoardTime (*change)(const RunPage &, BoardTime)) {
  const bool is_one = from.seconds >= 0 && from.microseconds >= 0 &&
                      from.microseconds < 1'000'000 && (from.seconds > 0 || from.microseconds > 0);
  if (!is_one)
    return from;
  const BoardTime time =
      change(run_page(), saturated_nanoseconds(from.seconds, from.microseconds * 1000));
  // A limit must not become none.
  const BoardTime microseconds = std::max<BoardTime>(time / 1000, 1);
  return {microseconds / 1'000'000, microseconds % 1'000'000};
}

template <typename Limit>
int set_limit(int fd, int option, const void *value, socklen_t size) {
  Limit given;
  if (size < sizeof given)
    return report(-EINVAL);
  memcpy(&given, value, sizeof given);
  const LongLimit pc = convert({given.seconds, given.microseconds}, pc_from_board);
  const ShortLimit limit = {static_cast<long>(std::min<std::int64_t>(pc.seconds, LONG_MAX)),
                            static_cast<long>(pc.microseconds)};
  return REAL(setsockopt)(fd, SOL_SOCKET, short_option(option), &limit, sizeof limit);
}

template <typename Limit>
int get_limit(int fd, int option, void *value, socklen_t *size) {
  ShortLimit limit;
  socklen_t limit_size = sizeof limit;
  const int result = REAL(getsockopt)(fd, SOL_SOCKET, short_option(option), &limit, &limit_size);
  if (result != 0)
    return result;
  const LongLimit board = convert({limit.seconds, limit.microseconds}, board_from_pc);
  Limit out;
  out.seconds = static_cast<decltype(out.seconds)>(board.seconds);
  out.microseconds = static_cast<decltype(out.microseconds)>(board.microseconds);
  *size = std::min<socklen_t>(*size, sizeof out);
  memcpy(value, &out, *size);
  return 0;
}

}  // namespace

int set_socket_option(int fd, int level, int option, const void *value, socklen_t size) {
  if (!on_board() || !is_scaled(level, option))
    return REAL(setsockopt)(fd, level, option, value, size);
  return option != short_option(option) ? set_limit<LongLimit>(fd, option, value, size)
                                        : set_limit<ShortLimit>(fd, option, value, size);
}

int get_socket_option(int fd, int level, int option, void *value, socklen_t *size) {
  if (!on_board() || !is_scaled(level, option))
    return REAL(getsockopt)(fd, level, option, value, size);
  return option != short_option(option) ? get_limit<LongLimit>(fd, option, value, size)
                                        : get_limit<ShortLimit>(fd, option, value, size);
}

}  // namespace vboard
