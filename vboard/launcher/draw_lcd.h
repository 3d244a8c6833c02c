// The display as a person sees it: in Braille dots, or as pixels.

#ifndef VBOARD_LAUNCHER_DRAW_LCD_H
#define VBOARD_LAUNCHER_DRAW_LCD_H
#include "vboard/board/lcd_controller.h"
#include "vboard/launcher/node_tables.h"

#include <stdio.h>

#include <cstddef>
#include <cstdint>

namespace vboard {

struct LcdView {
  LcdRegisters registers;
  bool is_lit;
  bool has_frame;  // otherwise the medium is missing or too short, and the frame is blank
  unsigned char frame[kLcdFrameSize];
};

LcdView lcd_view(const char *board, const BoardNode &node);

// One line of the drawing is four rows of the display: 64 characters of two by four dots.
inline constexpr int kBrailleLines = kLcdRows / 4;
inline constexpr std::size_t kBrailleSize = kLcdColumns / 2 * 3 + 1;
void braille_line(const LcdView &view, int line, char (&out)[kBrailleSize]);

void draw_lcd(const LcdView &view, FILE *out);

}  // namespace vboard

#endif
