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
// "EIO", or a number: the errno, positive. 0 for an unknown name.
int parse_errno(std::string_view word);
// "TERM", "SIGTERM", or a number: the signal. 0 for an unknown name.
int parse_signal(std::string_view word);

// A number that another text hardly has (FNV-1a). `front` is that of what stands before the text.
inline constexpr std::uint64_t kEmptyHash = 0xcbf29ce484222325;
std::uint64_t text_hash(std::string_view text, std::uint64_t front = kEmptyHash);

// Copies into a fixed text of a record; false (and an empty text) when it does not fit.
bool copy_text(std::span<char> out, std::string_view text);

// A text that is put together piece by piece in room of any size; what does not fit is cut off and
// sets `overflow`. It has no NUL at its end: FixedText has.
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

// The same with room of its own: up to N - 1 characters, which always end in a NUL.
template <std::size_t N>
struct FixedText {
  char data[N];
  std::size_t length;
  bool overflow;

  FixedText() : length(0), overflow(false) {
    data[0] = '\0';
  }
  const char *c_str() const {
    return data;
  }
  std::string_view view() const {
    return {data, length};
  }
};

// Hands the text to a function that appends to a TextBuffer.
template <std::size_t N, typename Append>
void append_with(FixedText<N> &text, Append append) {
  TextBuffer buffer = {text.data, N - 1, text.length, text.overflow};
  append(buffer);
  text.length = buffer.length;
  text.overflow = buffer.overflow;
  text.data[text.length] = '\0';
}

template <std::size_t N, typename... Pieces>
void append_text(FixedText<N> &text, const Pieces &...pieces) {
  append_with(text, [&](TextBuffer &buffer) { (append_text(buffer, pieces), ...); });
}
template <std::size_t N>
void append_decimal(FixedText<N> &text, std::int64_t value) {
  append_with(text, [&](TextBuffer &buffer) { append_decimal(buffer, value); });
}
template <std::size_t N>
void append_hex(FixedText<N> &text, std::uint64_t value) {
  append_with(text, [&](TextBuffer &buffer) { append_hex(buffer, value); });
}
template <std::size_t N>
void append_seconds(FixedText<N> &text, std::int64_t nanoseconds) {
  append_with(text, [&](TextBuffer &buffer) { append_seconds(buffer, nanoseconds); });
}

}  // namespace vboard

#endif
