// Wraps socket bind connect listen accept accept4 send sendto sendmsg recv recvfrom recvmsg
// __recv_chk __recvfrom_chk getsockname getpeername getsockopt setsockopt shutdown.
//
// Sockets of the internet, packet and netlink families are the board's: a stand-in descriptor whose
// model answers. AF_UNIX is the PC's kernel's, with names under the board's roots led to the board.

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/interposer/core/descriptors.h"
#include "vboard/interposer/core/device_lock.h"
#include "vboard/interposer/core/engine.h"
#include "vboard/interposer/core/host.h"
#include "vboard/interposer/core/opening.h"
#include "vboard/interposer/core/paths.h"
#include "vboard/interposer/core/report.h"
#include "vboard/interposer/core/requests.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/trace.h"
#include "vboard/interposer/core/transfers.h"
#include "vboard/interposer/core/wrap.h"
#include "vboard/interposer/models/socket_calls.h"
#include "vboard/interposer/wrap/socket_waits.h"

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>

using namespace vboard;

DECLARE_WRAPPED(ssize_t, read, int, void *, std::size_t);
DECLARE_WRAPPED(ssize_t, write, int, const void *, std::size_t);

namespace {

struct Family {
  int number;
  const char *name;  // in traces
};

constexpr Family kFamilies[] = {
    {AF_INET, "INET"},
    {AF_INET6, "INET6"},
    {AF_PACKET, "PACKET"},
    {AF_NETLINK, "NETLINK"},
};

const Family *find_family(int number) {
  for (const Family &family : kFamilies) {
    if (family.number == number)
      return &family;
  }
  return nullptr;
}

const char *type_name(int type) {
  switch (type & 0xF) {
    case SOCK_STREAM:
      return "STREAM";
    case SOCK_DGRAM:
      return "DGRAM";
    case SOCK_RAW:
      return "RAW";
    default:
      return "OTHER";
  }
}

// A socket of a family that this machine's kernel may have but the board does not: AF_BLUETOOTH,
// AF_CAN, AF_VSOCK and the like.
bool is_foreign_family(int family) {
  return family != AF_UNIX && find_family(family) == nullptr;
}

// The description of a socket of the board; null for the PC's.
Description *acquire_socket(int fd) {
  Description *description = on_board() ? acquire(fd) : nullptr;
  if (description != nullptr &&
      (description->kind != Kind::kModel || strcmp(description->asked, "socket") != 0)) {
    release(description);
    return nullptr;
  }
  return description;
}

// A request that only some socket models know.
int ask_model(Description &description, const char *call, std::uint32_t number, const void *address,
              socklen_t size) {
  SocketAddress record = {.size = size, .bytes = {}};
  const std::size_t copied = std::min<std::size_t>(size, sizeof record.bytes);
  int result = read_user(record.bytes, address, copied);
  const bool readable = result == 0;
  const Request *request = find_request(*description.file.model, number);
  if (result == 0 && request == nullptr)
    result = -ENETUNREACH;
  if (result == 0) {
    Argument argument = {.number = number,
                         .address = 0,
                         .record = &record,
                         .size = sizeof record,
                         .answers_failure = false};
    const DeviceLock lock;
    look_at_node(description);
    result = request->handler.call(description.file, argument);
  }
  if (tracing()) {
    TraceLine line;
    trace_begin(line, call, description.asked, copied);
    if (readable)
      trace_data(line, "in=", record.bytes, copied);
    trace_end(line, result, -result);
  }
  spend_call();
  return result;
}

// The name of a local socket, led to the board where its path is the board's. `size` follows.
const sockaddr *lead(const sockaddr *address, socklen_t &size, sockaddr_un &room) {
  constexpr socklen_t before_path = offsetof(sockaddr_un, sun_path);
  if (address == nullptr || size <= before_path || size > sizeof(sockaddr_un) ||
      address->sa_family != AF_UNIX)
    return address;
  room = {};
  memcpy(&room, address, size);
  char path[sizeof room.sun_path + 1] = {};
  memcpy(path, room.sun_path, size - before_path);
  if (path[0] == '\0')
    return address;
  Resolved resolved;
  resolve(AT_FDCWD, path, true, resolved);
  if (resolved.place == Place::kPc)
    return address;
  // Below the board even where it has no such name: the PC's service must not be found.
  name_own(resolved);
  if (resolved.place != Place::kPcByName)
    own_board_file(resolved.host);
  if (!copy_text(room.sun_path,
                 resolved.place == Place::kPcByName ? resolved.asked : resolved.host))
    copy_text(room.sun_path, "/dev/null/too-long-a-name");
  size = static_cast<socklen_t>(before_path + strlen(room.sun_path) + 1);
  return reinterpret_cast<const sockaddr *>(&room);
}

}  // namespace

WRAP(int, socket, int family, int type, int protocol) {
  const Family *ours = on_board() ? find_family(family) : nullptr;
  if (ours == nullptr) {
    if (on_board() && is_foreign_family(family))
      return report(-EAFNOSUPPORT);
    return REAL(socket)(family, type, protocol);
  }
  const Fault *fault = meet_fault(NodeNames{"socket", "socket"}, "socket");
  int result;
  if (fault != nullptr && fault->effect == FaultEffect::kErrno)
    result = static_cast<int>(-fault->value);
  else if (is_absent({"socket", "socket"}))
    result = -EAFNOSUPPORT;
  else
    result = open_socket({family, type, protocol});
  if (result >= 0 && fault != nullptr && fault->effect == FaultEffect::kResult)
    result = static_cast<int>(fault->value);
  if (tracing()) {
    TraceLine line;
    trace_begin(line, "socket", "socket");
    trace_word(line, ours->name);
    trace_word(line, type_name(type));
    if (protocol != 0)
      trace_number(line, "", protocol);
    trace_end(line, result, -result);
  }
  spend_call();
  return report(result);
}

WRAP(int, bind, int fd, const sockaddr *address, socklen_t size) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr) {
    sockaddr_un room;
    return REAL(bind)(fd, on_board() ? lead(address, size, room) : address, size);
  }
  const int result = ask_model(*socket, "bind", kSocketBind, address, size);
  release(socket);
  return report(result);
}

WRAP(int, connect, int fd, const sockaddr *address, socklen_t size) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr) {
    sockaddr_un room;
    const sockaddr *to = on_board() ? lead(address, size, room) : address;
    return waits_as_socket(fd) ? connect_socket(fd, to, size) : REAL(connect)(fd, to, size);
  }
  const int result = ask_model(*socket, "connect", kSocketConnect, address, size);
  release(socket);
  return report(result);
}

WRAP(int, listen, int fd, int backlog) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr)
    return REAL(listen)(fd, backlog);
  release(socket);
  return report(-EOPNOTSUPP);
}

WRAP(int, accept4, int fd, sockaddr *address, socklen_t *size, int flags) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr)
    return waits_as_socket(fd) ? accept_on_socket(fd, address, size, flags)
                               : REAL(accept4)(fd, address, size, flags);
  release(socket);
  return report(-EOPNOTSUPP);
}

WRAP(int, accept, int fd, sockaddr *address, socklen_t *size) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr)
    return waits_as_socket(fd) ? accept_on_socket(fd, address, size, 0)
                               : REAL(accept)(fd, address, size);
  release(socket);
  return report(-EOPNOTSUPP);
}

namespace {

ssize_t send_bytes(Description &socket, const void *bytes, std::size_t size) {
  if (socket.file.model->write != nullptr)
    return write_on_board(socket, bytes, size, kAtPosition);
  trace_call("write", socket.asked, -1, ENETUNREACH);
  spend_call();
  return -ENETUNREACH;
}

ssize_t receive_bytes(Description &socket, void *bytes, std::size_t size, int flags) {
  if (socket.file.model->read == nullptr) {
    trace_call("read", socket.asked, -1, ENOTCONN);
    spend_call();
    return -ENOTCONN;
  }
  const bool waits = (flags & MSG_DONTWAIT) == 0 || (socket.file.flags & O_NONBLOCK) != 0;
  if (!waits) {
    if ((readiness_of(socket, POLLIN, current_time()).events & POLLIN) == 0)
      return -EAGAIN;
  }
  return read_on_board(socket, bytes, size, kAtPosition);
}

// Calls with one piece on a socket of the kernel's that waits.

ssize_t send_one(int fd, const void *bytes, std::size_t size, int flags, const sockaddr *address,
                 socklen_t address_size) {
  const iovec piece = {const_cast<void *>(bytes), size};
  msghdr message = message_of(&piece, 1);
  message.msg_name = const_cast<sockaddr *>(address);
  message.msg_namelen = address_size;
  return send_on_socket(fd, message, flags);
}

ssize_t receive_one(int fd, void *bytes, std::size_t size, int flags, sockaddr *address,
                    socklen_t *address_size) {
  const iovec piece = {bytes, size};
  msghdr message = message_of(&piece, 1);
  message.msg_name = address_size != nullptr ? address : nullptr;
  message.msg_namelen = address_size != nullptr ? *address_size : 0;
  const ssize_t result = receive_on_socket(fd, message, flags);
  if (result >= 0 && address_size != nullptr)
    *address_size = message.msg_namelen;
  return result;
}

}  // namespace

WRAP(ssize_t, sendto, int fd, const void *bytes, std::size_t size, int flags,
     const sockaddr *address, socklen_t address_size) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr) {
    sockaddr_un room;
    const sockaddr *to = on_board() ? lead(address, address_size, room) : address;
    return waits_as_socket(fd, flags) ? send_one(fd, bytes, size, flags, to, address_size)
                                      : REAL(sendto)(fd, bytes, size, flags, to, address_size);
  }
  const ssize_t result = send_bytes(*socket, bytes, size);
  release(socket);
  return report(result);
}

WRAP(ssize_t, send, int fd, const void *bytes, std::size_t size, int flags) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr)
    return waits_as_socket(fd, flags) ? send_one(fd, bytes, size, flags, nullptr, 0)
                                      : REAL(send)(fd, bytes, size, flags);
  const ssize_t result = send_bytes(*socket, bytes, size);
  release(socket);
  return report(result);
}

// A message is one call of the model, whatever its pieces.
WRAP(ssize_t, sendmsg, int fd, const msghdr *message, int flags) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr)
    return waits_as_socket(fd, flags) ? send_on_socket(fd, *message, flags)
                                      : REAL(sendmsg)(fd, message, flags);
  unsigned char bytes[8192];
  std::size_t size = 0;
  ssize_t result = 0;
  for (std::size_t i = 0; i < message->msg_iovlen && result == 0; ++i) {
    const iovec &piece = message->msg_iov[i];
    if (piece.iov_len > sizeof bytes - size) {
      result = -EMSGSIZE;
    } else {
      result = read_user(bytes + size, piece.iov_base, piece.iov_len);
      size += piece.iov_len;
    }
  }
  if (result == 0)
    result = send_bytes(*socket, bytes, size);
  release(socket);
  return report(result);
}

WRAP(ssize_t, recvfrom, int fd, void *bytes, std::size_t size, int flags, sockaddr *address,
     socklen_t *address_size) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr)
    return waits_as_socket(fd, flags)
               ? receive_one(fd, bytes, size, flags, address, address_size)
               : REAL(recvfrom)(fd, bytes, size, flags, address, address_size);
  const ssize_t result = receive_bytes(*socket, bytes, size, flags);
  if (result >= 0 && address_size != nullptr)
    *address_size = 0;
  release(socket);
  return report(result);
}

WRAP(ssize_t, recv, int fd, void *bytes, std::size_t size, int flags) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr)
    return waits_as_socket(fd, flags) ? receive_one(fd, bytes, size, flags, nullptr, nullptr)
                                      : REAL(recv)(fd, bytes, size, flags);
  const ssize_t result = receive_bytes(*socket, bytes, size, flags);
  release(socket);
  return report(result);
}

WRAP(ssize_t, __recv_chk, int fd, void *bytes, std::size_t size, std::size_t room, int flags) {
  if (size > room)
    return REAL(__recv_chk)(fd, bytes, size, room, flags);
  return vboard_recv(fd, bytes, size, flags);
}

WRAP(ssize_t, __recvfrom_chk, int fd, void *bytes, std::size_t size, std::size_t room, int flags,
     sockaddr *address, socklen_t *address_size) {
  if (size > room)
    return REAL(__recvfrom_chk)(fd, bytes, size, room, flags, address, address_size);
  return vboard_recvfrom(fd, bytes, size, flags, address, address_size);
}

WRAP(ssize_t, recvmsg, int fd, msghdr *message, int flags) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr)
    return waits_as_socket(fd, flags) ? receive_on_socket(fd, *message, flags)
                                      : REAL(recvmsg)(fd, message, flags);
  unsigned char bytes[8192];
  std::size_t room = 0;
  for (std::size_t i = 0; i < message->msg_iovlen; ++i)
    room += message->msg_iov[i].iov_len;
  ssize_t result = receive_bytes(*socket, bytes, room < sizeof bytes ? room : sizeof bytes, flags);
  std::size_t done = 0;
  for (std::size_t i = 0; i < message->msg_iovlen && result > 0; ++i) {
    const std::size_t rest = static_cast<std::size_t>(result) - done;
    const std::size_t piece =
        message->msg_iov[i].iov_len < rest ? message->msg_iov[i].iov_len : rest;
    const int error = write_user(message->msg_iov[i].iov_base, bytes + done, piece);
    if (error < 0)
      result = error;
    done += piece;
  }
  message->msg_namelen = 0;
  message->msg_controllen = 0;
  message->msg_flags = 0;
  release(socket);
  return report(result);
}

namespace {

int unnamed(Description &socket, sockaddr *address, socklen_t *size) {
  sockaddr_storage name = {};
  const std::int64_t family = socket.shared->socket.family;
  name.ss_family = static_cast<sa_family_t>(family);
  const socklen_t full = family == AF_INET6  ? sizeof(sockaddr_in6)
                         : family == AF_INET ? sizeof(sockaddr_in)
                                             : 12;
  memcpy(address, &name, *size < full ? *size : full);
  *size = full;
  return 0;
}

}  // namespace

WRAP(int, getsockname, int fd, sockaddr *address, socklen_t *size) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr)
    return REAL(getsockname)(fd, address, size);
  const int result = unnamed(*socket, address, size);
  release(socket);
  return result;
}

WRAP(int, getpeername, int fd, sockaddr *address, socklen_t *size) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr)
    return REAL(getpeername)(fd, address, size);
  release(socket);
  return report(-ENOTCONN);
}

WRAP(int, getsockopt, int fd, int level, int option, void *value, socklen_t *size) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr)
    return get_socket_option(fd, level, option, value, size);
  std::int64_t answer = 0;
  if (level == SOL_SOCKET && option == SO_TYPE)
    answer = socket->shared->socket.type & 0xF;
  if (level == SOL_SOCKET && option == SO_DOMAIN)
    answer = socket->shared->socket.family;
  if (level == SOL_SOCKET && option == SO_PROTOCOL)
    answer = socket->shared->socket.protocol;
  release(socket);
  int number = static_cast<int>(answer);
  const socklen_t copied = *size < sizeof number ? *size : static_cast<socklen_t>(sizeof number);
  memcpy(value, &number, copied);
  *size = copied;
  return 0;
}

// Options change nothing that the board has.
WRAP(int, setsockopt, int fd, int level, int option, const void *value, socklen_t size) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr)
    return set_socket_option(fd, level, option, value, size);
  release(socket);
  return 0;
}

WRAP(int, shutdown, int fd, int how) {
  Description *socket = acquire_socket(fd);
  if (socket == nullptr)
    return REAL(shutdown)(fd, how);
  release(socket);
  return report(-ENOTCONN);
}
