// /dev/watchdog, as Linux's watchdog core has it: opening arms it, a keep-alive, a write or a new
// time limit starts the limit anew, and a close without the magic 'V' leaves it armed. When the
// limit runs out the board resets, whether the program still runs or not.

#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <linux/watchdog.h>
#include <string.h>

#include <algorithm>

namespace vboard {
namespace {

using enum Direction;
using enum SettingKind;

static_assert(WDIOC_GETSUPPORT == 0x80285700 && WDIOC_SETTIMEOUT == 0xC0045706 &&
              WDIOC_KEEPALIVE == 0x80045705 && WDIOC_SETOPTIONS == 0x80045704);

constexpr std::int64_t kLongest = 65535;  // seconds

static_assert((WDIOF_SETTIMEOUT | WDIOF_MAGICCLOSE | WDIOF_KEEPALIVEPING) == 0x8180);
constexpr Setting kSettings[] = {
    {.key = "timeout_s",
     .kind = kNumber,
     .otherwise = "60",
     .help = "the limit; the program's last one stays",
     .least = 1,
     .most = kLongest},
    {.key = "min_timeout_s",
     .kind = kNumber,
     .otherwise = "1",
     .help = "the shortest limit that a program may set",
     .least = 1,
     .most = kLongest},
    {.key = "max_timeout_s",
     .kind = kNumber,
     .otherwise = "65535",
     .help = "the longest",
     .least = 1,
     .most = kLongest},
    {.key = "identity", .kind = kText, .otherwise = "", .help = "the name that the driver reports"},
    {.key = "options",
     .kind = kNumber,
     .otherwise = "0x8180",
     .help = "its option bits: set time-out, magic close, keep-alive",
     .most = UINT32_MAX},
    {.key = "firmware_version",
     .kind = kNumber,
     .otherwise = "0",
     .help = "what the driver reports",
     .most = UINT32_MAX},
    {.key = "boot_status",
     .kind = kNumber,
     .otherwise = "0",
     .help = "likewise",
     .least = INT32_MIN,
     .most = INT32_MAX},
    {.key = "nowayout", .kind = kFlag, .otherwise = "0", .help = "1: it cannot be stopped (EBUSY)"},
    {.key = "bites", .kind = kFlag, .otherwise = "1", .help = "0: it never resets the board"},
};

struct WatchdogState {
  BoardTime reset_at;  // kNever while it is stopped
  int timeout_s;
  int options;
  bool may_stop;  // the magic character came with the last write
};

void start_limit(OpenFile &file, WatchdogState &state) {
  state.reset_at = board_time() + state.timeout_s * kSecond;
  if (setting_is_on(file, "bites"))
    set_reset_time(state.reset_at);
}

int stop(OpenFile &file, WatchdogState &state) {
  if (setting_is_on(file, "nowayout"))
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
  if (const int error = claim_device(file))
    return error;
  state.timeout_s = static_cast<int>(setting_number(file, "timeout_s"));
  state.options = static_cast<int>(setting_number(file, "options"));
  start_limit(file, state);
  return 0;
}

void watchdog_close(OpenFile &file) {
  WatchdogState &state = state_of<WatchdogState>(file);
  const bool may_stop = state.may_stop || (state.options & WDIOF_MAGICCLOSE) == 0;
  if (state.reset_at != kNever && (!may_stop || stop(file, state) < 0))
    keep_alive(file, state);
}

ssize_t watchdog_write(OpenFile &file, const UserMemory &from, std::int64_t) {
  if (from.size == 0)
    return 0;
  bool may_stop = false;
  for (std::size_t done = 0; done < from.size;) {
    unsigned char bytes[256];
    const std::size_t piece = std::min(from.size - done, sizeof bytes);
    if (const int error = copy_in(bytes, from.address + done, piece))
      return error;
    may_stop = may_stop || memchr(bytes, 'V', piece) != nullptr;
    done += piece;
  }
  WatchdogState &state = state_of<WatchdogState>(file);
  state.may_stop = may_stop;
  keep_alive(file, state);
  return static_cast<ssize_t>(from.size);
}

int get_support(OpenFile &file, watchdog_info &out) {
  out.options = static_cast<std::uint32_t>(state_of<WatchdogState>(file).options);
  out.firmware_version = static_cast<std::uint32_t>(setting_number(file, "firmware_version"));
  // A text that fills the field has no terminator, as some drivers have it.
  setting_text(file, "identity").copy(reinterpret_cast<char *>(out.identity), sizeof out.identity);
  return 0;
}

int get_status(OpenFile &, int &out) {
  out = 0;
  return 0;
}

int get_boot_status(OpenFile &file, int &out) {
  out = static_cast<int>(setting_number(file, "boot_status"));
  return 0;
}

int set_timeout(OpenFile &file, int &timeout_s) {
  WatchdogState &state = state_of<WatchdogState>(file);
  if ((state.options & WDIOF_SETTIMEOUT) == 0)
    return -EOPNOTSUPP;
  if (timeout_s < setting_number(file, "min_timeout_s") ||
      timeout_s > setting_number(file, "max_timeout_s"))
    return -EINVAL;
  state.timeout_s = timeout_s;
  keep_alive(file, state);
  return store_number(file, "timeout_s", timeout_s);
}

int get_timeout(OpenFile &file, int &out) {
  out = state_of<WatchdogState>(file).timeout_s;
  return 0;
}

int get_time_left(OpenFile &file, int &out) {
  const WatchdogState &state = state_of<WatchdogState>(file);
  out = state.reset_at == kNever
            ? state.timeout_s
            : static_cast<int>(std::max<BoardTime>(0, (state.reset_at - board_time()) / kSecond));
  return 0;
}

int set_options(OpenFile &file, int &options) {
  WatchdogState &state = state_of<WatchdogState>(file);
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

int feed(OpenFile &file) {
  WatchdogState &state = state_of<WatchdogState>(file);
  if ((state.options & WDIOF_KEEPALIVEPING) == 0)
    return -EOPNOTSUPP;
  keep_alive(file, state);
  return 0;
}

// clang-format off
constexpr Request kRequests[] = {
    {.number = WDIOC_GETSUPPORT,    .name = "WDIOC_GETSUPPORT",    .direction = kOut,   .handler = answers<get_support>},
    {.number = WDIOC_GETSTATUS,     .name = "WDIOC_GETSTATUS",     .direction = kOut,   .handler = answers<get_status>},
    {.number = WDIOC_GETBOOTSTATUS, .name = "WDIOC_GETBOOTSTATUS", .direction = kOut,   .handler = answers<get_boot_status>},
    // Taken from the caller, whatever direction the number says.
    {.number = WDIOC_SETOPTIONS,    .name = "WDIOC_SETOPTIONS",    .direction = kIn,    .handler = answers<set_options>},
    // The argument is not looked at; callers pass null, or nothing.
    {.number = WDIOC_KEEPALIVE,     .name = "WDIOC_KEEPALIVE",     .direction = kNone,  .handler = answers<feed>},
    {.number = WDIOC_SETTIMEOUT,    .name = "WDIOC_SETTIMEOUT",    .direction = kInOut, .handler = answers<set_timeout>},
    {.number = WDIOC_GETTIMEOUT,    .name = "WDIOC_GETTIMEOUT",    .direction = kOut,   .handler = answers<get_timeout>},
    {.number = WDIOC_GETTIMELEFT,   .name = "WDIOC_GETTIMELEFT",   .direction = kOut,   .handler = answers<get_time_left>},
};
// clang-format on

}  // namespace

extern constexpr Model kWatchdogModel = {
    .name = "watchdog",
    .settings = kSettings,
    .requests = kRequests,
    .open = watchdog_open,
    .close = watchdog_close,
    .write = watchdog_write,
};

}  // namespace vboard
