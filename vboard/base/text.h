// Reading the small texts of a board: words, numbers, times, names of errors and signals.

#ifndef VBOARD_BASE_TEXT_H
#define VBOARD_BASE_TEXT_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vboard {

std::string_view trimmed(std::string_view text);
// Takes the next word from the front of `text`; empty at the end.
std::string_view take_word(std::string_view &text);
// Takes the next line, without its end; false at the end of the text.
bool take_line(std::string_view &text, std::string_view &line);

// Whole words only: decimal or 0x hexadecimal with an optional sign.
bool parse_number(std::string_view word, std::int64_t &out);
// "2", "1.5", ".25": seconds, as nanoseconds. Not negative.
bool parse_seconds(std::string_view word, std::int64_t &out);
// "YYYY-MM-DD hh:mm:ss" in UTC, as nanoseconds since 1970.
bool parse_date(std::string_view text, std::int64_t &out);
// "EIO", or a number: the errno, positive. 0 for an unknown name.
int parse_errno(std::string_view word);
// "TERM", "SIGTERM", or a number: the signal. 0 for an unknown name.
int parse_signal(std::string_view word);

// Copies into a fixed text of a record; false (and an empty text) when it does not fit.
bool copy_text(std::span<char> out, std::string_view text);

// A text of a fixed size that is put together piece by piece; what does not fit sets `overflow`.
struct TextBuffer {
  char *data;
  std::size_t capacity;
  std::size_t length;
  bool overflow;
};
void append_text(TextBuffer &buffer, std::string_view text);
void append_decimal(TextBuffer &buffer, std::int64_t value);
void append_hex(TextBuffer &buffer, std::uint64_t value);
// Nanoseconds as seconds with six decimals, cut: "0.000004".
void append_seconds(TextBuffer &buffer, std::int64_t nanoseconds);

}  // namespace vboard

#endif
