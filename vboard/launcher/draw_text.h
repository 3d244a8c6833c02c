// Printing bytes and texts for the drawings.

#ifndef VBOARD_LAUNCHER_DRAW_TEXT_H
#define VBOARD_LAUNCHER_DRAW_TEXT_H

#include <stdio.h>

#include <cstddef>
#include <string_view>

namespace vboard {

void print(FILE *out, std::string_view text);
// "00 1a ff"
void print_hex(FILE *out, const unsigned char *bytes, std::size_t size);
// What is not printable as a dot.
void print_ascii(FILE *out, const unsigned char *bytes, std::size_t size);
// Lines of 16 bytes: their offset, hexadecimal, ASCII.
void dump(FILE *out, const unsigned char *bytes, std::size_t size);

}  // namespace vboard

#endif
