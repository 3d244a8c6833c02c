// Modelled descriptors in epoll sets: the kernel's set cannot hold them, so they are kept beside
// it.

#ifndef VBOARD_INTERPOSER_WRAP_EPOLLS_H
#define VBOARD_INTERPOSER_WRAP_EPOLLS_H

namespace vboard {

// Drops what is kept for a descriptor that is being closed, as a set or as a member.
void forget_epoll(int fd);

}  // namespace vboard

#endif
