// The time line of process events: a line an event, "SECONDS KIND NUMBER...", in the order of time.
//
//   0.5  fork 100 100 101 101        parent and child: process, thread group
//   0.6  exec 101 101
//   0.7  uid 101 101 1000 0          also gid, session, coredump, exit
//   0.8  comm 101 101 new name       the rest of the line is the name
//   0.9  event 0x100 1 2             any kind by its number, with up to four words
//   1.0  raw 10000000 0300...        a datagram as it stands, hexadecimal

#ifndef VBOARD_BOARD_PROCESS_EVENTS_H
#define VBOARD_BOARD_PROCESS_EVENTS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vboard {

inline constexpr std::size_t kEventMessage = 76;  // of netlink, connector and event together
inline constexpr std::size_t kMostDatagram = 512;

struct ProcessEventLine {
  std::int64_t at;  // nanoseconds
  std::size_t size;
  unsigned char datagram[kMostDatagram];
};

// Takes the next event from the front of `text`; lines that are none are passed over. False at the
// end.
bool next_process_event(std::string_view &text, ProcessEventLine &out);

// One message as the kernel's connector sends it.
void build_process_event(std::uint32_t what, const std::int32_t (&data)[4],
                         std::span<unsigned char, kEventMessage> out);

}  // namespace vboard

#endif
