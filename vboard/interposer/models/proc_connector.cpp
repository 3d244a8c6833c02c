// Netlink sockets, of which the board has one kind that answers: the kernel's process-events
// connector. A time line of events begins to run when a bound socket subscribes. The node file
// netlink/connector of the board describes it; without the file the kernel has no connector.

#include "vboard/board/process_events.h"
#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/models.h"
#include "vboard/interposer/models/socket_calls.h"

#include <errno.h>
#include <linux/netlink.h>
#include <string.h>

#include <algorithm>

namespace vboard {
namespace {

using enum SettingKind;

constexpr std::size_t kLongestTimeline = 1 << 20;
constexpr std::size_t kSubscription = 40;
constexpr std::uint32_t kListen = 1;
constexpr std::uint32_t kIgnore = 2;

constexpr Setting kSettings[] = {
    {.key = "events", .kind = kMedium, .otherwise = "", .help = "the time line, a file of media/"},
    {.key = "denied",
     .kind = kFlag,
     .otherwise = "0",
     .help = "1: only the superuser may listen, and nobody is: binding is EPERM"},
};

struct ConnectorState {
  bool bound;
  bool listening;
  bool acknowledges;   // the answer to a subscription waits to be read
  BoardTime since;     // of the subscription
  std::uint64_t read;  // bytes of the time line up to the next event
};

// The next event, and what the time line has behind it; false at its end.
bool find_next(OpenFile &file, ProcessEventLine &out, std::uint64_t &behind) {
  const std::string_view timeline = load_medium(file, kLongestTimeline);
  const std::size_t read = static_cast<std::size_t>(state_of<ConnectorState>(file).read);
  std::string_view rest = timeline.substr(std::min(read, timeline.size()));
  const bool found = next_process_event(rest, out);
  behind = timeline.size() - rest.size();
  return found;
}

ssize_t connector_write(OpenFile &file, const UserMemory &from, std::int64_t) {
  ConnectorState &state = state_of<ConnectorState>(file);
  std::uint32_t words[kSubscription / 4];
  if (from.size < kSubscription)
    return static_cast<ssize_t>(from.size);  // the kernel drops what it does not understand
  if (const int error = copy_in(words, from.address, sizeof words))
    return error;
  const bool to_events = words[0] >= kSubscription && words[4] == 1 && words[5] == 1;
  if (to_events && words[9] == kListen) {
    state.listening = true;
    state.acknowledges = true;
    state.since = board_time();
    state.read = 0;
  }
  if (to_events && words[9] == kIgnore)
    state.listening = false;
  return static_cast<ssize_t>(from.size);
}

BoardTime next_at(OpenFile &file) {
  const ConnectorState &state = state_of<ConnectorState>(file);
  if (!state.bound || !state.listening)
    return kNever;
  if (state.acknowledges)
    return state.since;
  ProcessEventLine next;
  std::uint64_t behind;
  return find_next(file, next, behind) ? state.since + next.at : kNever;
}

Readiness connector_ready(OpenFile &file, short events, BoardTime now) {
  const BoardTime at = (events & POLLIN) != 0 ? next_at(file) : kNever;
  return {.events = static_cast<short>(at <= now ? events : events & ~POLLIN), .next = at};
}

// The rest of a datagram that is too long is lost.
ssize_t connector_read(OpenFile &file, const UserMemory &to, std::int64_t) {
  ConnectorState &state = state_of<ConnectorState>(file);
  if (next_at(file) > board_time())
    return -EAGAIN;
  if (state.acknowledges) {
    unsigned char answer[kEventMessage];
    build_process_event(0, {}, answer);
    state.acknowledges = false;
    return give(to, answer, sizeof answer);
  }
  ProcessEventLine next;
  find_next(file, next, state.read);
  return give(to, next.datagram, next.size);
}

int bind_connector(OpenFile &file, SocketAddress &) {
  if (setting_is_on(file, "denied"))
    return -EPERM;
  state_of<ConnectorState>(file).bound = true;
  return 0;
}

constexpr Request kRequests[] = {
    {.number = kSocketBind,
     .name = "bind",
     .direction = Direction::kIn,
     .handler = answers<bind_connector>},
};

}  // namespace

extern constexpr Model kProcConnectorModel = {
    .name = "connector",
    .settings = kSettings,
    .requests = kRequests,
    .medium_setting = "events",
    .read = connector_read,
    .write = connector_write,
    .ready = connector_ready,
};

}  // namespace vboard
