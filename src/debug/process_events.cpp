// Messages of the process-events connector.

#include "debug/process_events.h"

#include <linux/cn_proc.h>
#include <linux/connector.h>
#include <linux/netlink.h>

#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace {

constexpr std::size_t kNameSize = 16;

// The front of an event message, as far as it is looked at.
struct ProcessEvent {
  NetlinkHeader netlink;      //  0
  ConnectorHeader connector;  // 16
  std::uint32_t what;         // 36
  std::uint32_t cpu;          // 40
  std::uint32_t time[2];      // 44: nanoseconds, 64 bits that are not aligned
  std::int32_t data[4];       // 52: processes, and identities
};
static_assert(sizeof(ProcessEvent) == 68);
static_assert(offsetof(ProcessEvent, what) == 36 && offsetof(ProcessEvent, data) == 52);

constexpr std::size_t kNameOffset = 60;  // of a rename, behind data[1]

static_assert(sizeof(cn_msg) == sizeof(ConnectorHeader));
static_assert(CN_IDX_PROC == 1 && CN_VAL_PROC == 1 && NLMSG_DONE == 3);
static_assert(PROC_CN_MCAST_LISTEN == 1 && PROC_CN_MCAST_IGNORE == 2);

constexpr std::uint32_t kNone = 0x00000000;  // the kernel's answer to a subscription
constexpr std::uint32_t kFork = 0x00000001;
constexpr std::uint32_t kExec = 0x00000002;
constexpr std::uint32_t kUid = 0x00000004;
constexpr std::uint32_t kGid = 0x00000040;
constexpr std::uint32_t kSession = 0x00000080;
constexpr std::uint32_t kComm = 0x00000200;
constexpr std::uint32_t kCoredump = 0x40000000;
constexpr std::uint32_t kExit = 0x80000000;

// A message may be shorter than its kind asks for: what it lacks reads as 0. The name stands
// beside the record, since it need not be terminated.
int print_event(std::span<const unsigned char> message) {
  ProcessEvent event = {};
  memcpy(&event, message.data(), std::min(message.size(), sizeof event));
  if (event.connector.idx != CN_IDX_PROC || event.connector.val != CN_VAL_PROC)
    return 0;

  const std::int32_t *data = event.data;
  switch (event.what) {
    case kNone:
      break;
    case kFork:
      fprintf(stderr, "fork pid=%d/tgid=%d -> pid=%d/tgid=%d\n", data[0], data[1], data[2],
              data[3]);
      break;
    case kExec:
      fprintf(stderr, "exec pid=%d/tgid=%d\n", data[0], data[1]);
      break;
    case kUid:
      fprintf(stderr, "uid pid=%d/tgid=%d -> ruid=%d/euid=%d\n", data[0], data[1], data[2],
              data[3]);
      break;
    case kGid:
      fprintf(stderr, "gid pid=%d/tgid=%d -> rgid=%d/egid=%d\n", data[0], data[1], data[2],
              data[3]);
      break;
    case kSession:
      fprintf(stderr, "session pid=%d/tgid=%d\n", data[0], data[1]);
      break;
    case kComm: {
      char name[kNameSize + 1] = "";
      const auto rest = message.subspan(std::min(message.size(), kNameOffset));
      memcpy(name, rest.data(), std::min(rest.size(), kNameSize));
      fprintf(stderr, "comm pid=%d/tgid=%d: '%s'\n", data[0], data[1], name);
      break;
    }
    case kCoredump:
      fprintf(stderr, "coredump pid=%d/tgid=%d\n", data[0], data[1]);
      break;
    case kExit:
      fprintf(stderr, "exit pid=%d/tgid=%d\n", data[0], data[1]);
      break;
    default:                                                    // ptrace, 0x100, as well
      fprintf(stderr, "unhandled event: 0x%8x\n", event.what);  // padded with blanks
      return -1;
  }
  return 0;
}

}  // namespace

ProcessSubscription build_subscription(std::uint32_t pid, bool listen) {
  ProcessSubscription message = {};
  message.netlink.length = sizeof message;
  message.netlink.type = NLMSG_DONE;
  message.netlink.pid = pid;
  message.connector.idx = CN_IDX_PROC;
  message.connector.val = CN_VAL_PROC;
  message.connector.length = sizeof message.operation;
  message.operation = listen ? PROC_CN_MCAST_LISTEN : PROC_CN_MCAST_IGNORE;
  return message;
}

int print_process_events(std::span<const unsigned char> datagram) {
  while (datagram.size() >= sizeof(NetlinkHeader)) {
    NetlinkHeader header;
    memcpy(&header, datagram.data(), sizeof header);
    if (header.length < sizeof header || header.length > datagram.size())
      break;
    if (print_event(datagram.first(header.length)) != 0)
      return -1;
    // The next message begins at a multiple of four, which may be behind the end.
    const std::size_t step = (std::size_t{header.length} + 3) & ~std::size_t{3};
    datagram = datagram.subspan(std::min(step, datagram.size()));
  }
  return 0;
}
