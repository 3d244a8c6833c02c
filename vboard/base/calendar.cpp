#include "vboard/base/calendar.h"

#include <stdio.h>

namespace vboard {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kDay = 86'400;

bool is_leap(int year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int days_in_month(int year, int month) {
  constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && is_leap(year) ? 29 : kDays[month - 1];
}

// `digits` characters at the front of the text as a number; false when they are not all digits.
bool take_digits(std::string_view &text, std::size_t digits, int &out) {
  if (text.size() < digits)
    return false;
  int value = 0;
  for (const char c : text.substr(0, digits)) {
    if (c < '0' || c > '9')
      return false;
    value = value * 10 + (c - '0');
  }
  text.remove_prefix(digits);
  out = value;
  return true;
}

bool take_char(std::string_view &text, char expected) {
  if (text.empty() || text[0] != expected)
    return false;
  text.remove_prefix(1);
  return true;
}

}  // namespace

CalendarTime calendar_of(std::int64_t nanoseconds) {
  std::int64_t seconds = nanoseconds / kSecond;
  std::int64_t rest = nanoseconds % kSecond;
  if (rest < 0) {
    rest += kSecond;
    --seconds;
  }
  std::int64_t days = seconds / kDay;
  std::int64_t of_day = seconds % kDay;
  if (of_day < 0) {
    of_day += kDay;
    --days;
  }
  int year = 1970;
  for (; days < 0; --year)
    days += is_leap(year - 1) ? 366 : 365;
  for (; days >= (is_leap(year) ? 366 : 365); ++year)
    days -= is_leap(year) ? 366 : 365;
  int month = 1;
  for (; days >= days_in_month(year, month); ++month)
    days -= days_in_month(year, month);
  return {.year = year,
          .month = month,
          .day = static_cast<int>(days) + 1,
          .hour = static_cast<int>(of_day / 3600),
          .minute = static_cast<int>(of_day / 60 % 60),
          .second = static_cast<int>(of_day % 60),
          .nanosecond = static_cast<int>(rest)};
}

namespace {

constexpr int kLastYear = 2255;  // of kCalendarEnd

// False for a date that does not exist or lies beyond these years.
bool moment_of(const CalendarTime &time, std::int64_t &out) {
  if (time.year < 1970 || time.year > kLastYear || time.month < 1 || time.month > 12 ||
      time.day < 1 || time.day > days_in_month(time.year, time.month) || time.hour < 0 ||
      time.hour > 23 || time.minute < 0 || time.minute > 59 || time.second < 0 ||
      time.second > 59 || time.nanosecond < 0 || time.nanosecond >= kSecond)
    return false;
  std::int64_t days = time.day - 1;
  for (int year = 1970; year < time.year; ++year)
    days += is_leap(year) ? 366 : 365;
  for (int month = 1; month < time.month; ++month)
    days += days_in_month(time.year, month);
  const std::int64_t seconds = days * kDay + time.hour * 3600 + time.minute * 60 + time.second;
  const std::int64_t moment =
      seconds * kSecond + time.nanosecond;  // of any of these years: it fits
  if (moment > kCalendarEnd)
    return false;
  out = moment;
  return true;
}

}  // namespace

bool nanoseconds_of(const CalendarTime &time, std::int64_t &out) {
  return time.year <= 2199 && moment_of(time, out);
}

bool parse_calendar(std::string_view text, std::int64_t &out) {
  CalendarTime time = {};
  if (!take_digits(text, 4, time.year) || !take_char(text, '-') ||
      !take_digits(text, 2, time.month) || !take_char(text, '-') ||
      !take_digits(text, 2, time.day) || !take_char(text, ' ') ||
      !take_digits(text, 2, time.hour) || !take_char(text, ':') ||
      !take_digits(text, 2, time.minute) || !take_char(text, ':') ||
      !take_digits(text, 2, time.second))
    return false;
  if (take_char(text, '.')) {
    int weight = kSecond / 10;
    int digit;
    for (; weight > 0 && take_digits(text, 1, digit); weight /= 10)
      time.nanosecond += digit * weight;
    if (weight == kSecond / 10)
      return false;
  }
  return text.empty() && moment_of(time, out);
}

void print_calendar(std::int64_t nanoseconds, char (&out)[40]) {
  const CalendarTime time = calendar_of(nanoseconds);
  const int length = snprintf(out, sizeof out, "%04d-%02d-%02d %02d:%02d:%02d", time.year,
                              time.month, time.day, time.hour, time.minute, time.second);
  if (time.nanosecond != 0 && length > 0)
    snprintf(out + length, sizeof out - static_cast<std::size_t>(length), ".%09d", time.nanosecond);
}

}  // namespace vboard
