// The kernel's process-events connector: what is sent to subscribe, and what its datagrams tell.
//
// The layouts are those of linux/netlink.h, linux/connector.h and linux/cn_proc.h, in the
// processor's byte order.

#ifndef BENCHRIG_DEBUG_PROCESS_EVENTS_H
#define BENCHRIG_DEBUG_PROCESS_EVENTS_H

#include <cstddef>
#include <cstdint>
#include <span>

struct NetlinkHeader {
  std::uint32_t length;  //  0: of the message, this header included
  std::uint16_t type;    //  4
  std::uint16_t flags;   //  6
  std::uint32_t seq;     //  8
  std::uint32_t pid;     // 12: the sender's port
};
static_assert(sizeof(NetlinkHeader) == 16 && offsetof(NetlinkHeader, pid) == 12);

struct ConnectorHeader {
  std::uint32_t idx;     //  0
  std::uint32_t val;     //  4
  std::uint32_t seq;     //  8
  std::uint32_t ack;     // 12
  std::uint16_t length;  // 16: of what follows
  std::uint16_t flags;   // 18
};
static_assert(sizeof(ConnectorHeader) == 20 && offsetof(ConnectorHeader, length) == 16);

struct ProcessSubscription {
  NetlinkHeader netlink;      //  0
  ConnectorHeader connector;  // 16
  std::uint32_t operation;    // 36: listen or ignore
};
static_assert(sizeof(ProcessSubscription) == 40);
static_assert(offsetof(ProcessSubscription, operation) == 36);

ProcessSubscription build_subscription(std::uint32_t pid, bool listen);

// Prints the events of one datagram on standard error, a line each. 0 to go on; -1 after an event
// that is not known, which ends the trace. Messages of other connectors say nothing; one whose
// length does not fit ends the datagram.
int print_process_events(std::span<const unsigned char> datagram);

#endif
