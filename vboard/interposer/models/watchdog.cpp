// /dev/watchdog, as Linux's watchdog core has it: opening arms it, a keep-alive, a write or a new
// time limit starts the limit anew, and a close without the magic 'V' leaves it armed. When the
// limit runs out the board resets, whether the program still runs or not.
//
//   identity, options, firmware_version, boot_status   what the driver tells about itself
//   timeout_s                                          the limit (60)
//   min_timeout_s, max_timeout_s                       limits of the limit (1, 65535)
//   nowayout   1: it cannot be stopped any more
//   bites      0: it never resets the board (a broken watchdog, whose test fails by going on)

#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <linux/watchdog.h>
#include <string.h>

#include <algorithm>

namespace vboard {
namespace {

static_assert(WDIOC_GETSUPPORT == 0x80285700 && WDIOC_SETTIMEOUT == 0xC0045706 &&
              WDIOC_KEEPALIVE == 0x80045705 && WDIOC_SETOPTIONS == 0x80045704);

constexpr int kDefaultOptions = WDIOF_SETTIMEOUT | WDIOF_MAGICCLOSE | WDIOF_KEEPALIVEPING;
constexpr std::int64_t kDefaultTimeout = 60;

struct WatchdogState {
  BoardTime reset_at;  // kNever while it is stopped
  int timeout_s;
  int options;
  int claim;
  bool may_stop;  // the magic character came with the last write
};

void start_limit(OpenFile &file, WatchdogState &state) {
  state.reset_at = board_time() + state.timeout_s * kSecond;
  if (node_number(file.node, "bites", 1) != 0)
    set_reset_time(state.reset_at);
}

int stop(OpenFile &file, WatchdogState &state) {
  if (node_number(file.node, "nowayout", 0) != 0)
    return -EBUSY;
  state.reset_at = kNever;
  set_reset_time(kNever);
  return 0;
}

// A keep-alive of a stopped watchdog is no error and does not arm it.
void keep_alive(OpenFile &file, WatchdogState &state) {
  if (state.reset_at != kNever)
    start_limit(file, state);
}

int watchdog_open(OpenFile &file) {
  WatchdogState &state = state_of<WatchdogState>(file);
  if (const int error = claim_device(file, state.claim))
    return error;
  const std::int64_t timeout = node_number(file.node, "timeout_s", kDefaultTimeout);
  state.timeout_s = static_cast<int>(timeout >= 1 && timeout <= 65535 ? timeout : kDefaultTimeout);
  state.options = static_cast<int>(node_number(file.node, "options", kDefaultOptions));
  start_limit(file, state);
  return 0;
}

void watchdog_close(OpenFile &file) {
  WatchdogState &state = state_of<WatchdogState>(file);
  const bool may_stop = state.may_stop || (state.options & WDIOF_MAGICCLOSE) == 0;
  if (state.reset_at != kNever && (!may_stop || stop(file, state) < 0))
    keep_alive(file, state);
  release_claim(state.claim);
}

ssize_t watchdog_write(OpenFile &file, const void *buffer, std::size_t size) {
  if (size == 0)
    return 0;
  WatchdogState &state = state_of<WatchdogState>(file);
  state.may_stop = memchr(buffer, 'V', size) != nullptr;
  keep_alive(file, state);
  return static_cast<ssize_t>(size);
}

void get_support(const OpenFile &file, const WatchdogState &state, watchdog_info &out) {
  out = {};
  out.options = static_cast<std::uint32_t>(state.options);
  out.firmware_version = static_cast<std::uint32_t>(node_number(file.node, "firmware_version", 0));
  const std::string_view identity = node_text(file.node, "identity");
  // A text that fills the field has no terminator, as some drivers have it.
  identity.copy(reinterpret_cast<char *>(out.identity), sizeof out.identity);
}

int set_timeout(OpenFile &file, WatchdogState &state, int &timeout_s) {
  if ((state.options & WDIOF_SETTIMEOUT) == 0)
    return -EOPNOTSUPP;
  if (timeout_s < node_number(file.node, "min_timeout_s", 1) ||
      timeout_s > node_number(file.node, "max_timeout_s", 65535) || timeout_s < 1 ||
      timeout_s > 65535)
    return -EINVAL;
  state.timeout_s = timeout_s;
  keep_alive(file, state);
  return store_number(file, "timeout_s", timeout_s);
}

int set_options(OpenFile &file, WatchdogState &state, int options) {
  if ((options & (WDIOS_DISABLECARD | WDIOS_ENABLECARD)) == 0)
    return -EINVAL;
  if (options & WDIOS_DISABLECARD) {
    if (const int error = stop(file, state))
      return error;
  }
  if (options & WDIOS_ENABLECARD)
    start_limit(file, state);
  return 0;
}

int time_left(const WatchdogState &state) {
  if (state.reset_at == kNever)
    return state.timeout_s;
  return static_cast<int>(std::max<BoardTime>(0, (state.reset_at - board_time()) / kSecond));
}

int watchdog_ioctl(OpenFile &file, std::uint32_t request, void *argument) {
  WatchdogState &state = state_of<WatchdogState>(file);
  int *number = static_cast<int *>(argument);
  switch (request) {
    case WDIOC_GETSUPPORT:
      get_support(file, state, *static_cast<watchdog_info *>(argument));
      return 0;
    case WDIOC_GETSTATUS:
      *number = 0;
      return 0;
    case WDIOC_GETBOOTSTATUS:
      *number = static_cast<int>(node_number(file.node, "boot_status", 0));
      return 0;
    case WDIOC_SETOPTIONS:
      return set_options(file, state, *number);
    case WDIOC_KEEPALIVE:
      if ((state.options & WDIOF_KEEPALIVEPING) == 0)
        return -EOPNOTSUPP;
      keep_alive(file, state);
      return 0;
    case WDIOC_SETTIMEOUT:
      return set_timeout(file, state, *number);
    case WDIOC_GETTIMEOUT:
      *number = state.timeout_s;
      return 0;
    case WDIOC_GETTIMELEFT:
      *number = time_left(state);
      return 0;
    default:
      return -ENOTTY;
  }
}

using enum Direction;

// clang-format off
constexpr Request kRequests[] = {
    {.number = WDIOC_GETSUPPORT,    .name = "WDIOC_GETSUPPORT",    .size = 40, .direction = kOut},
    {.number = WDIOC_GETSTATUS,     .name = "WDIOC_GETSTATUS",     .size = 4,  .direction = kOut},
    {.number = WDIOC_GETBOOTSTATUS, .name = "WDIOC_GETBOOTSTATUS", .size = 4,  .direction = kOut},
    // Taken from the caller, whatever direction the number tells.
    {.number = WDIOC_SETOPTIONS,    .name = "WDIOC_SETOPTIONS",    .size = 4,  .direction = kIn},
    // The argument is not looked at; callers pass null, or nothing.
    {.number = WDIOC_KEEPALIVE,     .name = "WDIOC_KEEPALIVE",     .size = 0,  .direction = kNone},
    {.number = WDIOC_SETTIMEOUT,    .name = "WDIOC_SETTIMEOUT",    .size = 4,  .direction = kInOut},
    {.number = WDIOC_GETTIMEOUT,    .name = "WDIOC_GETTIMEOUT",    .size = 4,  .direction = kOut},
    {.number = WDIOC_GETTIMELEFT,   .name = "WDIOC_GETTIMELEFT",   .size = 4,  .direction = kOut},
};
// clang-format on

}  // namespace

extern constexpr Model kWatchdogModel = {
    .name = "watchdog",
    .requests = kRequests,
    .medium_size = 0,
    .medium_fill = 0,
    .open = watchdog_open,
    .close = watchdog_close,
    .read = nullptr,
    .write = watchdog_write,
    .ioctl = watchdog_ioctl,
    .readable_at = nullptr,
};

}  // namespace vboard
