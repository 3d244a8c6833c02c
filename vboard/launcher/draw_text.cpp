#include "vboard/launcher/draw_text.h"

#include <algorithm>

namespace vboard {

void print(FILE *out, std::string_view text) {
  // An empty text may have no place at all, which fwrite() does not take.
  if (!text.empty())
    fwrite(text.data(), 1, text.size(), out);
}

void print_hex(FILE *out, const unsigned char *bytes, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i)
    fprintf(out, i == 0 ? "%02x" : " %02x", bytes[i]);
}

void print_ascii(FILE *out, const unsigned char *bytes, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i)
    fputc(bytes[i] >= 0x20 && bytes[i] < 0x7F ? bytes[i] : '.', out);
}

void dump(FILE *out, const unsigned char *bytes, std::size_t size) {
  for (std::size_t at = 0; at < size; at += 16) {
    const std::size_t piece = std::min<std::size_t>(16, size - at);
    fprintf(out, "%04zx  ", at);
    print_hex(out, bytes + at, piece);
    fprintf(out, "%*s  ", static_cast<int>(3 * (16 - piece)), "");
    print_ascii(out, bytes + at, piece);
    fputc('\n', out);
  }
}

}  // namespace vboard
