// /dev/rtc0: a battery-backed clock. It follows the board's calendar clock until somebody sets it;
// from then on it runs from what was set.
//
//   set_to, set_at  what the clock was set to, and the board's calendar time of that moment
//   rate            seconds it counts in a second (1.0; 0.9 is slow)
//   stopped         1: it stands still (a dead crystal)
//   time_valid      0: it lost its supply; reading is EINVAL until it is set

#include "vboard/base/calendar.h"
#include "vboard/base/decimal.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <linux/rtc.h>
#include <stdio.h>
#include <string.h>

namespace vboard {
namespace {

static_assert(RTC_RD_TIME == 0x80247009 && RTC_SET_TIME == 0x4024700A && sizeof(rtc_time) == 36);

struct RtcState {
  std::int64_t set_to;  // nanoseconds since 1970
  std::int64_t set_at;
  double rate;
  int claim;
};

int rtc_open(OpenFile &file) {
  RtcState &state = state_of<RtcState>(file);
  if (const int error = claim_device(file, state.claim))
    return error;
  const bool stopped = node_number(file.node, "stopped", 0) != 0;
  state.rate = stopped ? 0 : decimal_or(node_text(file.node, "rate"), 1);
  // A clock that was never set begins, like the board, with the calendar; a wrong rate counts from
  // here on.
  if (!parse_calendar(node_text(file.node, "set_to"), state.set_to) ||
      !parse_calendar(node_text(file.node, "set_at"), state.set_at))
    state.set_to = state.set_at = board_calendar_time();
  return 0;
}

void rtc_close(OpenFile &file) {
  release_claim(state_of<RtcState>(file).claim);
}

std::int64_t now_on_clock(const RtcState &state) {
  std::int64_t passed = board_calendar_time() - state.set_at;
  // Without the detour through floating point a true clock is true to the nanosecond.
  if (state.rate != 1)
    passed = static_cast<std::int64_t>(static_cast<double>(passed) * state.rate);
  return state.set_to + passed;
}

int read_time(OpenFile &file, rtc_time &out) {
  if (node_number(file.node, "time_valid", 1) == 0)
    return -EINVAL;
  const CalendarTime now = calendar_of(now_on_clock(state_of<RtcState>(file)));
  // Day of week, day of year and daylight saving are not the clock's: rtc(4) calls them unused.
  out = {};
  out.tm_sec = now.second;
  out.tm_min = now.minute;
  out.tm_hour = now.hour;
  out.tm_mday = now.day;
  out.tm_mon = now.month - 1;
  out.tm_year = now.year - 1900;
  return 0;
}

int set_time(OpenFile &file, const rtc_time &in) {
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
  return node_number(file.node, "time_valid", 1) == 0 ? store_number(file, "time_valid", 1) : 0;
}

int rtc_ioctl(OpenFile &file, std::uint32_t request, void *argument) {
  switch (request) {
    case RTC_RD_TIME:
      return read_time(file, *static_cast<rtc_time *>(argument));
    case RTC_SET_TIME:
      return set_time(file, *static_cast<const rtc_time *>(argument));
    default:
      return -ENOTTY;
  }
}

using enum Direction;

constexpr Request kRequests[] = {
    {.number = RTC_RD_TIME, .name = "RTC_RD_TIME", .size = 36, .direction = kOut},
    {.number = RTC_SET_TIME, .name = "RTC_SET_TIME", .size = 36, .direction = kIn},
};

// There are no alarms, and so nothing ever to read.
ssize_t no_read(OpenFile &, void *, std::size_t) {
  return -EAGAIN;
}

BoardTime never_readable(OpenFile &, BoardTime) {
  return kNever;
}

}  // namespace

extern constexpr Model kRtcModel = {
    .name = "rtc",
    .requests = kRequests,
    .medium_size = 0,
    .medium_fill = 0,
    .open = rtc_open,
    .close = rtc_close,
    .read = no_read,
    .write = nullptr,
    .ioctl = rtc_ioctl,
    .readable_at = never_readable,
};

}  // namespace vboard
