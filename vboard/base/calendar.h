// Calendar dates (UTC), as texts and as nanoseconds since 1970. libc's gmtime() would look for the
// PC's time zone files.

#ifndef VBOARD_BASE_CALENDAR_H
#define VBOARD_BASE_CALENDAR_H

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace vboard {

struct CalendarTime {
  int year;
  int month;  // 1 to 12
  int day;    // 1 to 31
  int hour;
  int minute;
  int second;
  int nanosecond;
};

// Files and programs may name any time. Sums end at what 64 bits hold instead of beyond.
inline std::int64_t saturated_sum(std::int64_t left, std::int64_t right) {
  std::int64_t sum;
  if (!__builtin_add_overflow(left, right, &sum))
    return sum;
  return right < 0 ? INT64_MIN : INT64_MAX;
}
inline std::int64_t saturated_nanoseconds(std::int64_t seconds, std::int64_t nanoseconds) {
  std::int64_t whole;
  if (__builtin_mul_overflow(seconds, 1'000'000'000, &whole))
    return seconds < 0 ? INT64_MIN : INT64_MAX;
  return saturated_sum(whole, nanoseconds);
}

// The board's calendar clock reads times from 1970 to the year 2255, and stays at these ends.
inline constexpr std::int64_t kCalendarEnd = 9'000'000'000'000'000'000;
inline std::int64_t calendar_after(std::int64_t calendar, std::int64_t duration) {
  return std::clamp<std::int64_t>(saturated_sum(calendar, duration), 0, kCalendarEnd);
}

CalendarTime calendar_of(std::int64_t nanoseconds);

// False for a date that does not exist or lies outside 1970 to 2199, which clock chips count.
bool nanoseconds_of(const CalendarTime &time, std::int64_t &out);

// "2015-04-01 08:57:23", in UTC, with up to nine decimals after the seconds. False for a date that
// does not exist or that the calendar clock does not reach.
bool parse_calendar(std::string_view text, std::int64_t &out);
// The same with decimals only when there are some; at most 29 characters and a zero byte.
void print_calendar(std::int64_t nanoseconds, char (&out)[40]);

}  // namespace vboard

#endif
