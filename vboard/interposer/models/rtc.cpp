// /dev/rtc0: a battery-backed clock. It follows the board's calendar clock until somebody sets it;
// from then on it runs from what was set.

#include "vboard/base/calendar.h"
#include "vboard/base/decimal.h"
#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <linux/rtc.h>

namespace vboard {
namespace {

using enum Direction;
using enum SettingKind;

static_assert(RTC_RD_TIME == 0x80247009 && RTC_SET_TIME == 0x4024700A && sizeof(rtc_time) == 36);

constexpr Setting kSettings[] = {
    {.key = "set_to", .kind = kDate, .otherwise = "", .help = "what the clock was set to"},
    {.key = "set_at",
     .kind = kDate,
     .otherwise = "",
     .help = "the board's calendar time of that moment"},
    {.key = "rate", .kind = kDecimal, .otherwise = "1.0", .help = "seconds it counts in a second"},
    {.key = "stopped", .kind = kFlag, .otherwise = "0", .help = "1: it stands still"},
    {.key = "time_valid",
     .kind = kFlag,
     .otherwise = "1",
     .help = "0: it lost its supply; reading is EINVAL until it is set"},
};

struct RtcState {
  std::int64_t set_to;  // nanoseconds since 1970
  std::int64_t set_at;
};

int rtc_open(OpenFile &file) {
  RtcState &state = state_of<RtcState>(file);
  if (const int error = claim_device(file))
    return error;
  // A clock that was never set begins, like the board, with the calendar; a wrong rate counts from
  // here on.
  if (!parse_calendar(setting_text(file, "set_to"), state.set_to) ||
      !parse_calendar(setting_text(file, "set_at"), state.set_at))
    state.set_to = state.set_at = board_calendar_time();
  return 0;
}

std::int64_t now_on_clock(const OpenFile &file) {
  const RtcState &state = state_of<RtcState>(file);
  const double rate =
      setting_is_on(file, "stopped") ? 0 : decimal_or(setting_text(file, "rate"), 1);
  std::int64_t passed = board_calendar_time() - state.set_at;
  // Without the detour through floating point a true clock is true to the nanosecond.
  if (rate != 1)
    passed = static_cast<std::int64_t>(static_cast<double>(passed) * rate);
  return state.set_to + passed;
}

int read_time(OpenFile &file, rtc_time &out) {
  if (!setting_is_on(file, "time_valid"))
    return -EINVAL;
  const CalendarTime now = calendar_of(now_on_clock(file));
  // Day of week, day of year and daylight saving are not the clock's: rtc(4) calls them unused.
  out.tm_sec = now.second;
  out.tm_min = now.minute;
  out.tm_hour = now.hour;
  out.tm_mday = now.day;
  out.tm_mon = now.month - 1;
  out.tm_year = now.year - 1900;
  return 0;
}

int set_time(OpenFile &file, rtc_time &in) {
  const CalendarTime time = {.year = in.tm_year + 1900,
                             .month = in.tm_mon + 1,
                             .day = in.tm_mday,
                             .hour = in.tm_hour,
                             .minute = in.tm_min,
                             .second = in.tm_sec,
                             .nanosecond = 0};
  std::int64_t set_to;
  if (!nanoseconds_of(time, set_to))
    return -EINVAL;

  RtcState &state = state_of<RtcState>(file);
  state.set_to = set_to;
  state.set_at = board_calendar_time();
  char text[40];
  print_calendar(state.set_to, text);
  if (const int error = store_text(file, "set_to", text))
    return error;
  print_calendar(state.set_at, text);
  if (const int error = store_text(file, "set_at", text))
    return error;
  return !setting_is_on(file, "time_valid") ? store_number(file, "time_valid", 1) : 0;
}

// There are no alarms, and so nothing ever to read.
ssize_t no_read(OpenFile &, const UserMemory &, std::int64_t) {
  return -EAGAIN;
}

Readiness never_readable(OpenFile &, short events, BoardTime) {
  return {.events = static_cast<short>(events & ~POLLIN)};
}

// clang-format off
constexpr Request kRequests[] = {
    {.number = RTC_RD_TIME,  .name = "RTC_RD_TIME",  .direction = kOut, .handler = answers<read_time>},
    {.number = RTC_SET_TIME, .name = "RTC_SET_TIME", .direction = kIn,  .handler = answers<set_time>},
};
// clang-format on

}  // namespace

extern constexpr Model kRtcModel = {
    .name = "rtc",
    .settings = kSettings,
    .requests = kRequests,
    .open = rtc_open,
    .read = no_read,
    .ready = never_readable,
};

}  // namespace vboard
