// A network interface: the node file net/NAME of the board. Its requests come in through any socket
// of the program; their record names the interface in its first 16 bytes.

#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/models.h"

#include <arpa/inet.h>
#include <errno.h>
#include <net/if.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/ioctl.h>

namespace vboard {
namespace {

using enum Direction;
using enum SettingKind;

constexpr Setting kSettings[] = {
    {.key = "ipv4", .kind = kText, .otherwise = "", .help = "its address; without one it has none"},
    {.key = "index",
     .kind = kNumber,
     .otherwise = "",
     .help = "its number; by the order of names when it is missing",
     .least = 1,
     .most = INT32_MAX},
};

int get_address(OpenFile &interface, ifreq &record) {
  char text[INET_ADDRSTRLEN];
  const std::string_view address = setting_text(interface, "ipv4");
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

// clang-format off
constexpr Request kRequests[] = {
    {.number = SIOCGIFADDR, .name = "SIOCGIFADDR", .direction = kInOut, .handler = answers<get_address>},
};
// clang-format on

}  // namespace

extern constexpr Model kInterfaceModel = {
    .name = "interface",
    .settings = kSettings,
    .requests = kRequests,
};

}  // namespace vboard
