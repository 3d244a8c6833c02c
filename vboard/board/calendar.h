// Calendar dates (UTC), as texts and as nanoseconds since 1970. libc's gmtime() would look for the
// PC's time zone files.

#ifndef VBOARD_BOARD_CALENDAR_H
#define VBOARD_BOARD_CALENDAR_H

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

CalendarTime calendar_of(std::int64_t nanoseconds);

// False for a date that does not exist or lies outside 1970 to 2199.
bool nanoseconds_of(const CalendarTime &time, std::int64_t &out);

// "2015-04-01 08:57:23", with up to nine decimals behind the seconds.
bool parse_calendar(std::string_view text, std::int64_t &out);
// The same with decimals only when there are some; at most 29 characters and a zero byte.
void print_calendar(std::int64_t nanoseconds, char (&out)[40]);

}  // namespace vboard

#endif
