#include "vboard/base/text.h"

#include <signal.h>
#include <string.h>

namespace vboard {

namespace {

constexpr std::string_view kBlanks = " \t\r";

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

int digit_value(char c) {
  if (is_digit(c))
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return 99;
}

}  // namespace

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos)
    return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string_view take_word(std::string_view &text) {
  text = trimmed(text);
  std::size_t end = text.find_first_of(kBlanks);
  if (end == std::string_view::npos)
    end = text.size();
  const std::string_view word = text.substr(0, end);
  text.remove_prefix(end);
  return word;
}

bool take_line(std::string_view &text, std::string_view &line) {
  if (text.empty())
    return false;
  const std::size_t end = text.find('\n');
  line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return true;
}

bool parse_number(std::string_view word, std::int64_t &out) {
  bool negative = false;
  if (!word.empty() && (word[0] == '-' || word[0] == '+')) {
    negative = word[0] == '-';
    word.remove_prefix(1);
  }
  std::uint64_t base = 10;
  if (word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X')) {
    base = 16;
    word.remove_prefix(2);
  }
  if (word.empty())
    return false;
  std::uint64_t value = 0;
  for (const char c : word) {
    const std::uint64_t digit = static_cast<std::uint64_t>(digit_value(c));
    if (digit >= base || value > (UINT64_MAX - digit) / base)
      return false;
    value = value * base + digit;
  }
  // The two's complement takes hexadecimal numbers of 64 bits and the most negative one alike.
  out = static_cast<std::int64_t>(negative ? 0 - value : value);
  return true;
}

bool parse_seconds(std::string_view word, std::int64_t &out) {
  std::int64_t whole = 0;
  std::size_t at = 0;
  for (; at < word.size() && is_digit(word[at]); ++at) {
    if (whole > 8'000'000'000)  // 253 years: more would not fit in nanoseconds
      return false;
    whole = whole * 10 + (word[at] - '0');
  }
  if (whole > 8'000'000'000)
    return false;
  bool digits = at > 0;
  std::int64_t fraction = 0;
  if (at < word.size() && word[at] == '.') {
    std::int64_t unit = 100'000'000;
    for (++at; at < word.size() && is_digit(word[at]); ++at, unit /= 10) {
      fraction += unit * (word[at] - '0');
      digits = true;
    }
  }
  if (!digits || at != word.size())
    return false;
  out = whole * 1'000'000'000 + fraction;
  return true;
}

int parse_errno(std::string_view word) {
  std::int64_t number;
  if (parse_number(word, number))
    return number > 0 && number < 4096 ? static_cast<int>(number) : 0;
  for (int i = 1; i < 134; ++i) {
    const char *name = strerrorname_np(i);
    if (name != nullptr && word == name)
      return i;
  }
  if (word == "EWOULDBLOCK")
    return 11;
  return word == "EOPNOTSUPP" ? 95 : 0;
}

int parse_signal(std::string_view word) {
  std::int64_t number;
  if (parse_number(word, number))
    return number > 0 && number < NSIG ? static_cast<int>(number) : 0;
  if (word.starts_with("SIG"))
    word.remove_prefix(3);
  for (int i = 1; i < 32; ++i) {
    const char *name = sigabbrev_np(i);
    if (name != nullptr && word == name)
      return i;
  }
  return 0;
}

std::uint64_t text_hash(std::string_view text, std::uint64_t front) {
  for (const char letter : text)
    front = (front ^ static_cast<unsigned char>(letter)) * 0x100000001b3;
  return front;
}

bool copy_text(std::span<char> out, std::string_view text) {
  out[0] = '\0';
  if (text.size() >= out.size())
    return false;
  text.copy(out.data(), text.size());  // unlike memcpy(), also for an empty text without a place
  out[text.size()] = '\0';
  return true;
}

void append_text(TextBuffer &buffer, std::string_view text) {
  if (text.size() > buffer.capacity - buffer.length) {
    buffer.overflow = true;
    text = text.substr(0, buffer.capacity - buffer.length);
  }
  text.copy(buffer.data + buffer.length, text.size());
  buffer.length += text.size();
}

void append_decimal(TextBuffer &buffer, std::int64_t value) {
  char digits[24];
  std::size_t at = sizeof digits;
  std::uint64_t rest =
      value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
  do {
    digits[--at] = static_cast<char>('0' + rest % 10);
    rest /= 10;
  } while (rest != 0);
  if (value < 0)
    digits[--at] = '-';
  append_text(buffer, {digits + at, sizeof digits - at});
}

void append_hex(TextBuffer &buffer, std::uint64_t value) {
  char digits[20];
  std::size_t at = sizeof digits;
  do {
    digits[--at] = "0123456789abcdef"[value & 15];
    value >>= 4;
  } while (value != 0);
  digits[--at] = 'x';
  digits[--at] = '0';
  append_text(buffer, {digits + at, sizeof digits - at});
}

void append_seconds(TextBuffer &buffer, std::int64_t nanoseconds) {
  append_decimal(buffer, nanoseconds / 1'000'000'000);
  char fraction[7] = {'.'};
  std::int64_t micros = nanoseconds / 1000 % 1'000'000;
  for (int i = 6; i > 0; --i, micros /= 10)
    fraction[i] = static_cast<char>('0' + micros % 10);
  append_text(buffer, {fraction, sizeof fraction});
}

}  // namespace vboard
