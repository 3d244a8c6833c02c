// Waits of the PC's own sockets (AF_UNIX), with the limits that the program has given them by
// SO_RCVTIMEO and SO_SNDTIMEO.
//
// At a fixed speed the kernel waits, with the limit divided. In a jumping run the engine does, and
// the kernel is only asked for what it can do at once.

#ifndef VBOARD_INTERPOSER_WRAP_SOCKET_WAITS_H
#define VBOARD_INTERPOSER_WRAP_SOCKET_WAITS_H

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>

namespace vboard {

// Whether a call on the descriptor waits in a jumping run: a socket of the kernel's that blocks.
// `flags` are those of recv() and send(), 0 for other calls.
bool waits_as_socket(int fd, int flags = 0);

// recvmsg(), sendmsg(), accept4() and connect() on such a socket, in libc's form.
ssize_t receive_on_socket(int fd, msghdr &message, int flags);
ssize_t send_on_socket(int fd, const msghdr &message, int flags);
int accept_on_socket(int fd, sockaddr *address, socklen_t *size, int flags);
int connect_socket(int fd, const sockaddr *address, socklen_t size);

// A message of pieces alone.
inline msghdr message_of(const iovec *pieces, std::size_t count) {
  msghdr message = {};
  message.msg_iov = const_cast<iovec *>(pieces);
  message.msg_iovlen = count;
  return message;
}

// Sets a limit at a fixed speed, and reads it as the program has set it. Other options, and limits
// in a jumping run, are the kernel's as they are.
int set_socket_option(int fd, int level, int option, const void *value, socklen_t size);
int get_socket_option(int fd, int level, int option, void *value, socklen_t *size);

}  // namespace vboard

#endif
