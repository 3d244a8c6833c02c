#include "vboard/base/bell.h"

#include "vboard/base/kernel.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>

namespace vboard {

namespace {

// The kernel's own choice of a name: a zero byte and five hexadecimal digits.
constexpr int kDigits = 5;
constexpr socklen_t kAddressSize = offsetof(sockaddr_un, sun_path) + 1 + kDigits;

}  // namespace

int make_bell(int lowest, std::uint32_t &out_number) {
  const int kept = errno;
  int fd =
      static_cast<int>(syscall(SYS_socket, AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  errno = kept;
  if (fd < 0)
    return -1;
  fd = sys_move_high(fd, lowest);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  socklen_t size = sizeof address;
  if (syscall(SYS_bind, fd, &address, sizeof address.sun_family) < 0 ||
      syscall(SYS_getsockname, fd, &address, &size) < 0 || size != kAddressSize) {
    errno = kept;
    sys_close(fd);
    return -1;
  }
  out_number = 0;
  for (int i = 1; i <= kDigits; ++i) {
    const char digit = address.sun_path[i];
    const int value = digit <= '9' ? digit - '0' : digit - 'a' + 10;
    out_number = out_number << 4 | static_cast<std::uint32_t>(value & 0xF);
  }
  ++out_number;  // 0 is no bell
  return fd;
}

void ring_bell(int own, std::uint32_t number) {
  if (number == 0)
    return;
  constexpr char digits[] = "0123456789abcdef";
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  for (int i = 0; i < kDigits; ++i)
    address.sun_path[kDigits - i] = digits[(number - 1) >> (4 * i) & 0xF];
  const int kept = errno;
  const char ring = 0;
  // One that is full has been rung; one that is gone has nobody to wake.
  syscall(SYS_sendto, own, &ring, sizeof ring, MSG_DONTWAIT | MSG_NOSIGNAL, &address, kAddressSize);
  errno = kept;
}

void silence_bell(int own) {
  const int kept = errno;
  char rings[16];
  while (syscall(SYS_recvfrom, own, rings, sizeof rings, MSG_DONTWAIT, nullptr, nullptr) > 0) {
  }
  errno = kept;
}

}  // namespace vboard
