// Netlink sockets, of which the board has one kind that answers: the kernel's process-events
// connector. A time line of events begins to run when a bound socket subscribes. The file
// netlink/connector of the board tells of it; without the file the kernel has no connector:
//
//   events   the time line, media/EVENTS (see vboard/board/process_events.h)
//   denied   1: only the superuser may listen, and nobody is: binding is EPERM

#include "vboard/board/process_events.h"
#include "vboard/board/state_files.h"
#include "vboard/interposer/models/models.h"
#include "vboard/interposer/models/socket_calls.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

namespace vboard {
namespace {

constexpr std::size_t kMostTimeline = 1 << 20;
constexpr std::size_t kSubscription = 40;
constexpr std::uint32_t kListen = 1;
constexpr std::uint32_t kIgnore = 2;

struct ConnectorState {
  bool is_connector;
  bool denied;
  bool bound;
  bool listening;
  bool acknowledges;  // the answer to a subscription waits to be read
  BoardTime since;    // of the subscription
  bool has_next;
  std::string_view text;  // the whole time line
  std::string_view rest;  // of it, behind `next`
};

// The next event stands behind the time line's text in one allocation.
struct Timeline {
  ProcessEventLine next;
  char text[kMostTimeline];
};

Timeline &timeline_of(OpenFile &file) {
  return *static_cast<Timeline *>(file.extra);
}

int connector_open(OpenFile &file) {
  ConnectorState &state = state_of<ConnectorState>(file);
  state.is_connector = node_number(file.node, "protocol", 0) == NETLINK_CONNECTOR;
  if (!state.is_connector)
    return 0;
  char path[512];
  snprintf(path, sizeof path, "%s/netlink/connector", board_directory());
  Node settings;
  if (load_node(path, settings) < 0)
    return -EPROTONOSUPPORT;
  state.denied = node_number(settings, "denied", 0) != 0;
  file.extra = malloc(sizeof(Timeline));
  if (file.extra == nullptr)
    return -ENOMEM;
  const std::string_view events = node_text(settings, "events");
  char name[300];
  snprintf(name, sizeof name, "media/%.*s", static_cast<int>(events.size()), events.data());
  const ssize_t size =
      events.empty() ? 0 : load_state(board_directory(), name, timeline_of(file).text);
  state.text = {timeline_of(file).text, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
  return 0;
}

void connector_close(OpenFile &file) {
  free(file.extra);
  file.extra = nullptr;
}

void listen(OpenFile &file) {
  ConnectorState &state = state_of<ConnectorState>(file);
  state.listening = true;
  state.acknowledges = true;
  state.since = board_time();
  state.rest = state.text;
  state.has_next = next_process_event(state.rest, timeline_of(file).next);
}

ssize_t connector_write(OpenFile &file, const void *buffer, std::size_t size) {
  ConnectorState &state = state_of<ConnectorState>(file);
  if (!state.is_connector)
    return -ENOTCONN;
  std::uint32_t words[kSubscription / 4];
  if (size < kSubscription)
    return static_cast<ssize_t>(size);  // the kernel drops what it does not understand
  memcpy(words, buffer, sizeof words);
  const bool to_events = words[0] >= kSubscription && words[4] == 1 && words[5] == 1;
  if (to_events && words[9] == kListen)
    listen(file);
  if (to_events && words[9] == kIgnore)
    state.listening = false;
  return static_cast<ssize_t>(size);
}

BoardTime connector_readable_at(OpenFile &file, BoardTime) {
  const ConnectorState &state = state_of<ConnectorState>(file);
  if (!state.bound || !state.listening)
    return kNever;
  if (state.acknowledges)
    return state.since;
  return state.has_next ? state.since + timeline_of(file).next.at : kNever;
}

ssize_t connector_read(OpenFile &file, void *buffer, std::size_t size) {
  ConnectorState &state = state_of<ConnectorState>(file);
  if (!state.is_connector)
    return -ENOTCONN;
  if (connector_readable_at(file, 0) > board_time())
    return -EAGAIN;
  ProcessEventLine &next = timeline_of(file).next;
  if (state.acknowledges) {
    unsigned char answer[kEventMessage];
    build_process_event(0, {}, answer);
    state.acknowledges = false;
    size = std::min(size, sizeof answer);
    memcpy(buffer, answer, size);
    return static_cast<ssize_t>(size);
  }
  size = std::min(size, next.size);  // the rest of a datagram that is too long is lost
  memcpy(buffer, next.datagram, size);
  state.has_next = next_process_event(state.rest, next);
  return static_cast<ssize_t>(size);
}

int connector_ioctl(OpenFile &file, std::uint32_t request, void *) {
  ConnectorState &state = state_of<ConnectorState>(file);
  if (request != kSocketBind)
    return -ENOTTY;
  if (state.denied)
    return -EPERM;
  state.bound = true;
  return 0;
}

constexpr Request kRequests[] = {
    {.number = kSocketBind,
     .name = "bind",
     .size = sizeof(SocketAddress),
     .direction = Direction::kIn},
};

}  // namespace

extern constexpr Model kProcConnectorModel = {
    .name = "socket.netlink",
    .requests = kRequests,
    .medium_size = 0,
    .medium_fill = 0,
    .open = connector_open,
    .close = connector_close,
    .read = connector_read,
    .write = connector_write,
    .ioctl = connector_ioctl,
    .readable_at = connector_readable_at,
};

}  // namespace vboard
