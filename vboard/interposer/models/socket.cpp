// Sockets of the internet and packet families, as far as requests about network interfaces go. An
// interface is a file net/NAME of the board:
//
//   ipv4   its address; without one the interface has none

#include "vboard/interposer/models/models.h"

#include <arpa/inet.h>
#include <errno.h>
#include <net/if.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>

namespace vboard {
namespace {

int get_address(const Node &interface, ifreq &record) {
  char text[INET_ADDRSTRLEN];
  const std::string_view address = node_text(interface, "ipv4");
  if (address.empty() || address.size() >= sizeof text)
    return -EADDRNOTAVAIL;
  text[address.copy(text, sizeof text - 1)] = '\0';
  sockaddr_in out = {};
  out.sin_family = AF_INET;
  if (inet_pton(AF_INET, text, &out.sin_addr) != 1)
    return -EADDRNOTAVAIL;
  memcpy(&record.ifr_addr, &out, sizeof out);
  return 0;
}

// What can be asked of an interface. Every request names it in the first 16 bytes.
struct InterfaceRequest {
  std::uint32_t number;
  int (*answer)(const Node &interface, ifreq &record);
};

constexpr InterfaceRequest kInterfaceRequests[] = {
    {.number = SIOCGIFADDR, .answer = get_address},
};

using enum Direction;

constexpr Request kRequests[] = {
    {.number = SIOCGIFADDR, .name = "SIOCGIFADDR", .size = sizeof(ifreq), .direction = kInOut},
};

bool load_interface(const char (&name)[IFNAMSIZ], Node &out) {
  const std::size_t length = strnlen(name, sizeof name);
  if (length == 0 || length == sizeof name || memchr(name, '/', length) != nullptr ||
      name[0] == '.')
    return false;
  char file[512];
  const int printed = snprintf(file, sizeof file, "%s/net/%s", board_directory(), name);
  return printed > 0 && static_cast<std::size_t>(printed) < sizeof file &&
         load_node(file, out) == 0;
}

int socket_ioctl(OpenFile &, std::uint32_t request, void *argument) {
  for (const InterfaceRequest &row : kInterfaceRequests) {
    if (row.number != request)
      continue;
    ifreq record;
    memcpy(&record, argument, sizeof record);
    Node interface;
    if (!load_interface(record.ifr_name, interface))
      return -ENODEV;
    const int result = row.answer(interface, record);
    if (result >= 0)
      memcpy(argument, &record, sizeof record);
    return result;
  }
  return -ENOTTY;
}

}  // namespace

extern constexpr Model kSocketModel = {
    .name = "socket",
    .requests = kRequests,
    .medium_size = 0,
    .medium_fill = 0,
    .open = nullptr,
    .close = nullptr,
    .read = nullptr,
    .write = nullptr,
    .ioctl = socket_ioctl,
    .readable_at = nullptr,
};

}  // namespace vboard
