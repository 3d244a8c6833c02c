// Wraps if_nametoindex if_indextoname if_nameindex if_freenameindex getifaddrs freeifaddrs
// getaddrinfo gethostbyname gethostbyname_r.
//
// libc asks the kernel about interfaces through sockets of its own. The board's interfaces are the
// files of its net directory, numbered in the order of their names (or by a setting "index").

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/board/node.h"
#include "vboard/interposer/core/fault_table.h"
#include "vboard/interposer/core/state.h"
#include "vboard/interposer/core/wrap.h"

#include <arpa/inet.h>
#include <errno.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include <algorithm>

using namespace vboard;

namespace {

constexpr std::size_t kMostInterfaces = 64;

struct Interface {
  char name[IF_NAMESIZE];
  unsigned int index;
  bool has_address;
  in_addr address;
};

struct InterfaceList {
  Interface *interfaces;
  std::size_t count;
};

bool add_interface(const char *name, void *context) {
  InterfaceList &list = *static_cast<InterfaceList *>(context);
  if (name[0] == '.' || !copy_text(list.interfaces[list.count].name, name))
    return true;
  char node[4 + IF_NAMESIZE] = "net:";
  memcpy(node + 4, name, strlen(name) + 1);
  if (!is_absent({node, node}))
    ++list.count;
  return list.count < kMostInterfaces;
}

std::size_t list_interfaces(Interface *out) {
  BoardPath directory;
  if (find_board_file(board_root(), "net", directory) < 0)
    return 0;
  InterfaceList list = {out, 0};
  each_board_entry(directory.c_str(), add_interface, &list);
  const std::size_t count = list.count;
  std::sort(out, out + count, [](const Interface &left, const Interface &right) {
    return strcmp(left.name, right.name) < 0;
  });
  for (std::size_t i = 0; i < count; ++i) {
    BoardPath file = directory;
    append_text(file, "/", out[i].name);
    Node node;
    node.length = 0;
    load_node(file.c_str(), node);
    out[i].index = static_cast<unsigned int>(node_number(node, "index", static_cast<long>(i + 1)));
    char text[INET_ADDRSTRLEN];
    out[i].has_address =
        copy_text(text, node_text(node, "ipv4")) && inet_pton(AF_INET, text, &out[i].address) == 1;
  }
  return count;
}

}  // namespace

WRAP(unsigned int, if_nametoindex, const char *name) {
  if (!on_board())
    return REAL(if_nametoindex)(name);
  Interface interfaces[kMostInterfaces];
  const std::size_t count = list_interfaces(interfaces);
  for (std::size_t i = 0; i < count; ++i) {
    if (strcmp(interfaces[i].name, name) == 0)
      return interfaces[i].index;
  }
  errno = ENODEV;
  return 0;
}

WRAP(char *, if_indextoname, unsigned int index, char *name) {
  if (!on_board())
    return REAL(if_indextoname)(index, name);
  Interface interfaces[kMostInterfaces];
  const std::size_t count = list_interfaces(interfaces);
  for (std::size_t i = 0; i < count; ++i) {
    if (interfaces[i].index == index) {
      memcpy(name, interfaces[i].name, IF_NAMESIZE);
      return name;
    }
  }
  errno = ENXIO;
  return nullptr;
}

// One block for the list and its names, as if_freenameindex() then frees it.
WRAP(struct if_nameindex *, if_nameindex, void) {
  if (!on_board())
    return REAL(if_nameindex)();
  Interface interfaces[kMostInterfaces];
  const std::size_t count = list_interfaces(interfaces);
  const std::size_t head = (count + 1) * sizeof(struct if_nameindex);
  void *block = calloc(1, head + count * IF_NAMESIZE);
  if (block == nullptr)
    return nullptr;
  struct if_nameindex *list = static_cast<struct if_nameindex *>(block);
  for (std::size_t i = 0; i < count; ++i) {
    char *name = static_cast<char *>(block) + head + i * IF_NAMESIZE;
    memcpy(name, interfaces[i].name, IF_NAMESIZE);
    list[i] = {interfaces[i].index, name};
  }
  return list;
}

WRAP(void, if_freenameindex, struct if_nameindex *list) {
  if (!on_board()) {
    REAL(if_freenameindex)(list);
    return;
  }
  free(list);
}

namespace {

struct Entry {
  ifaddrs item;
  char name[IF_NAMESIZE];
  sockaddr_in address, mask;
};

}  // namespace

WRAP(int, getifaddrs, ifaddrs **out) {
  if (!on_board())
    return REAL(getifaddrs)(out);
  Interface interfaces[kMostInterfaces];
  const std::size_t count = list_interfaces(interfaces);
  *out = nullptr;
  if (count == 0)
    return 0;
  Entry *entries = static_cast<Entry *>(calloc(count, sizeof(Entry)));
  if (entries == nullptr) {
    errno = ENOMEM;
    return -1;
  }
  for (std::size_t i = 0; i < count; ++i) {
    Entry &entry = entries[i];
    memcpy(entry.name, interfaces[i].name, IF_NAMESIZE);
    entry.item.ifa_name = entry.name;
    entry.item.ifa_flags = IFF_UP | IFF_RUNNING;
    entry.item.ifa_next = i + 1 < count ? &entries[i + 1].item : nullptr;
    if (!interfaces[i].has_address)
      continue;
    entry.address.sin_family = AF_INET;
    entry.address.sin_addr = interfaces[i].address;
    entry.mask.sin_family = AF_INET;
    entry.mask.sin_addr.s_addr = htonl(0xFFFFFF00);
    entry.item.ifa_addr = reinterpret_cast<sockaddr *>(&entry.address);
    entry.item.ifa_netmask = reinterpret_cast<sockaddr *>(&entry.mask);
  }
  *out = &entries[0].item;
  return 0;
}

WRAP(void, freeifaddrs, ifaddrs *list) {
  if (!on_board()) {
    REAL(freeifaddrs)(list);
    return;
  }
  free(list);
}

// Names are not looked up: libc would ask the PC's name servers. Numbers are no names.
WRAP(int, getaddrinfo, const char *host, const char *service, const addrinfo *hints,
     addrinfo **out) {
  if (!on_board())
    return REAL(getaddrinfo)(host, service, hints, out);
  addrinfo numeric = {};
  if (hints != nullptr)
    numeric = *hints;
  numeric.ai_flags = (numeric.ai_flags | AI_NUMERICHOST) & ~AI_ADDRCONFIG;
  return REAL(getaddrinfo)(host, service, &numeric, out);
}

WRAP(hostent *, gethostbyname, const char *name) {
  in_addr address;
  if (!on_board() || inet_pton(AF_INET, name, &address) == 1)
    return REAL(gethostbyname)(name);
  h_errno = HOST_NOT_FOUND;
  return nullptr;
}

WRAP(int, gethostbyname_r, const char *name, hostent *entry, char *buffer, std::size_t size,
     hostent **result, int *error) {
  in_addr address;
  if (!on_board() || inet_pton(AF_INET, name, &address) == 1)
    return REAL(gethostbyname_r)(name, entry, buffer, size, result, error);
  *result = nullptr;
  *error = HOST_NOT_FOUND;
  return 0;
}
