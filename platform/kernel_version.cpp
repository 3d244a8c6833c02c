// Parsing of /proc/version:
//   Linux version 6.1.0-18-armmp (builder@host) (gcc ...) #1 SMP Debian 6.1.76-1 (2024-02-01)
//   Linux version 5.10.92 (builder@host) (gcc ...) #1 SMP PREEMPT Thu Feb  1 12:00:00 UTC 2024

#include "platform/kernel_version.h"

#include <algorithm>

namespace rigcore {

namespace {

constexpr std::string_view kPrefix = "Linux version ";
constexpr char kMonths[] = "JanFebMarAprMayJunJulAugSepOctNovDec";

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// Takes the decimal number that `text` begins with off it; -1 when there is none. Nothing here has
// more than six digits, so that a longer run of them is no number either.
int take_number(std::string_view &text) {
  int number = 0;
  std::size_t digits = 0;
  while (digits < text.size() && is_digit(text[digits])) {
    if (digits == 6)
      return -1;
    number = number * 10 + (text[digits] - '0');
    ++digits;
  }
  text.remove_prefix(digits);
  return digits == 0 ? -1 : number;
}

bool take_character(std::string_view &text, char wanted) {
  if (text.empty() || text.front() != wanted)
    return false;
  text.remove_prefix(1);
  return true;
}

// The number that is the whole word, else nothing positive.
int whole_number(std::string_view word) {
  const int number = take_number(word);
  return word.empty() ? number : 0;
}

std::string_view take_word(std::string_view &text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\n'))
    text.remove_prefix(1);
  std::size_t size = 0;
  while (size < text.size() && text[size] != ' ' && text[size] != '\n')
    ++size;
  const std::string_view word(text.data(), size);
  text.remove_prefix(size);
  return word;
}

// 1 to 12, 0 for another word.
int month_number(std::string_view word) {
  for (int month = 1; month <= 12 && word.size() == 3; ++month) {
    if (word == std::string_view(kMonths + (month - 1) * 3, 3))
      return month;
  }
  return 0;
}

std::uint32_t packed_date(int year, int month, int day) {
  if (year < 2000 || month < 1 || month > 12 || day < 1 || day > 31)
    return 0;
  return static_cast<std::uint32_t>(year - 2000) << 16 | static_cast<std::uint32_t>(month) << 8 |
         static_cast<std::uint32_t>(day);
}

// "2024-02-01", with or without parentheses.
std::uint32_t numeric_date(std::string_view word) {
  take_character(word, '(');
  if (!word.empty() && word.back() == ')')
    word.remove_suffix(1);
  if (word.size() != 10)
    return 0;
  const int year = take_number(word);
  const bool first_dash = take_character(word, '-');
  const int month = take_number(word);
  const bool second_dash = take_character(word, '-');
  const int day = take_number(word);
  return first_dash && second_dash && word.empty() ? packed_date(year, month, day) : 0;
}

}  // namespace

std::uint32_t parse_kernel_version(std::string_view text) {
  if (!text.starts_with(kPrefix))
    return 0;
  text.remove_prefix(kPrefix.size());
  const int major = take_number(text);
  const int minor = take_character(text, '.') ? take_number(text) : -1;
  if (major < 0 || minor < 0 || minor > 255)
    return 0;
  // "6.8-rc1" has no patch level.
  const int patch = take_character(text, '.') ? take_number(text) : 0;
  return static_cast<std::uint32_t>(major) << 16 | static_cast<std::uint32_t>(minor) << 8 |
         static_cast<std::uint32_t>(std::clamp(patch, 0, 255));
}

std::uint32_t parse_kernel_date(std::string_view text) {
  // In front of the '#' stand the compiler's and the linker's versions, which may hold dates too.
  const std::size_t number_sign = text.find('#');
  text.remove_prefix(number_sign == text.npos ? 0 : number_sign);
  int month = 0;
  int day = 0;
  int words_since_month = 0;
  while (!text.empty()) {
    const std::string_view word = take_word(text);
    const std::uint32_t date = numeric_date(word);
    if (date != 0)
      return date;
    const int named = month_number(word);
    if (named != 0) {
      month = named;
      words_since_month = 0;
      continue;
    }
    // Month, day, time, zone, year: the year is the third or the fourth word behind the month.
    ++words_since_month;
    if (words_since_month == 1)
      day = whole_number(word);
    else if (month != 0 && words_since_month <= 4 && word.size() == 4 && whole_number(word) > 0)
      return packed_date(whole_number(word), month, day);
  }
  return 0;
}

}  // namespace rigcore
