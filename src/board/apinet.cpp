// apinet: prints the address of the modem's interface, ppp0, once a second until it is killed.
// Arguments are ignored.

#include "board/board.h"

#include <arpa/inet.h>
#include <errno.h>
#include <net/if.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

static_assert(SIOCGIFADDR == 0x8915);

void print_address(int socket) {
  ifreq request = {};
  snprintf(request.ifr_name, sizeof request.ifr_name, "ppp0");
  if (ioctl(socket, SIOCGIFADDR, &request) < 0) {
    printf("1get_ipaddr ioctl error and errno=%d\n", errno);
    return;
  }
  sockaddr_in address;
  memcpy(&address, &request.ifr_addr, sizeof address);
  char text[32] = "";
  inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
  printf("get ppp0 ipaddr:%s.\n", text);
}

}  // namespace

int apinet_main([[maybe_unused]] int argc, [[maybe_unused]] char **argv) {
  for (;;) {
    // A round without a socket prints nothing.
    const int stream = socket(AF_INET, SOCK_STREAM, 0);
    if (stream >= 0) {
      print_address(stream);
      close(stream);
    }
    sleep(1);
  }
}
