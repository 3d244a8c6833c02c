// A model in a library of its own: the push buttons of a front panel, as somebody who has another
// board would write it.
//
// It has what a model may have: settings, a request whose length is part of its number, memory that
// all processes of a run share, and a request that hands out a descriptor to wait on.

#include "vboard/interposer/models/host.h"

#include <errno.h>
#include <string.h>
#include <sys/ioctl.h>

#include <algorithm>

namespace {

using namespace vboard;
using enum Direction;
using enum SettingKind;

constexpr std::uint32_t kGetCount = _IOR('b', 1, std::uint32_t);
constexpr std::uint32_t kGetName = _IOC(_IOC_READ, 'b', 2, 0);  // of any length
constexpr std::uint32_t kPress = _IOW('b', 3, std::uint32_t);
constexpr std::uint32_t kGetEvents = _IOR('b', 4, std::int32_t);

constexpr Setting kSettings[] = {
    {.key = "count", .kind = kNumber, .otherwise = "4", .help = "buttons", .least = 1, .most = 32},
    {.key = "name", .kind = kText, .otherwise = "panel", .help = "what the driver reports"},
};

// What every process of the run sees.
struct Presses {
  std::uint32_t total;
  std::uint32_t last;
};

Presses &presses_of(OpenFile &file) {
  return *static_cast<Presses *>(device_memory(file, sizeof(Presses)));
}

// A descriptor for events has its own place in them.
struct Events {
  std::uint32_t read;
};

Readiness events_ready(OpenFile &file, short events, BoardTime) {
  const bool waiting = presses_of(file).total > state_of<Events>(file).read;
  return {.events = static_cast<short>(waiting ? events & POLLIN : 0)};
}

ssize_t read_event(OpenFile &file, const UserMemory &to, std::int64_t) {
  Events &state = state_of<Events>(file);
  const Presses &presses = presses_of(file);
  if (presses.total <= state.read)
    return -EAGAIN;
  state.read = presses.total;
  return give(to, &presses, sizeof presses);
}

constexpr Model kEvents = {
    .name = "button events",
    .read = read_event,
    .ready = events_ready,
};

constexpr const Model *kChildren[] = {&kEvents};

int get_count(OpenFile &file, std::uint32_t &out) {
  out = static_cast<std::uint32_t>(setting_number(file, "count"));
  return 0;
}

int get_name(OpenFile &file, Argument &argument) {
  const std::string_view name = setting_text(file, "name");
  const std::size_t taken = std::min(name.size(), argument.size);
  memcpy(argument.record, name.data(), taken);
  return static_cast<int>(taken);
}

int press(OpenFile &file, std::uint32_t &button) {
  if (button >= setting_number(file, "count"))
    return -EINVAL;
  Presses &presses = presses_of(file);
  ++presses.total;
  presses.last = button;
  wake(file);
  return 0;
}

int hand_out_events(OpenFile &file, std::int32_t &fd) {
  const Events begin = {.read = presses_of(file).total};
  fd = open_child(file, kEvents, file.flags, &begin, sizeof begin);
  return fd < 0 ? fd : 0;
}

constexpr Request kRequests[] = {
    {.number = kGetCount, .name = "GET_COUNT", .direction = kOut, .handler = answers<get_count>},
    {.number = kGetName,
     .name = "GET_NAME",
     .direction = kOut,
     .handler = answers<get_name>,
     .any_size = true},
    {.number = kPress, .name = "PRESS", .direction = kIn, .handler = answers<press>},
    {.number = kGetEvents,
     .name = "GET_EVENTS",
     .direction = kOut,
     .handler = answers<hand_out_events>},
};

constexpr Model kButtons = {
    .name = "buttons",
    .settings = kSettings,
    .requests = kRequests,
    .children = kChildren,
};

}  // namespace

VBOARD_MODEL(kButtons)
