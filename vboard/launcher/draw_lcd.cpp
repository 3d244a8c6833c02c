#include "vboard/launcher/draw_lcd.h"

#include "vboard/launcher/draw_files.h"

#include <string.h>

namespace vboard {

LcdView lcd_view(const char *board, const BoardNode &node) {
  LcdView view = {};
  lcd_load(node.node, view.registers);
  view.is_lit = is_on(node, "backlight");
  view.has_frame = read_medium(board, text_of(node, "medium"), view.frame, sizeof view.frame) ==
                   sizeof view.frame;
  if (!view.has_frame)
    memset(view.frame, 0, sizeof view.frame);
  return view;
}

// Braille patterns begin at U+2800; dots 1 to 6 count down the two columns of the upper three rows,
// 7 and 8 are the lowest row.
void braille_line(const LcdView &view, int line, char (&out)[kBrailleSize]) {
  constexpr unsigned int kDots[4][2] = {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}};
  char *end = out;
  for (int cell = 0; cell < kLcdColumns / 2; ++cell) {
    unsigned int dots = 0;
    for (int row = 0; row < 4; ++row) {
      for (int column = 0; column < 2; ++column) {
        if (lcd_is_dark(view.registers, view.frame, cell * 2 + column, line * 4 + row))
          dots |= kDots[row][column];
      }
    }
    *end++ = static_cast<char>(0xE2);
    *end++ = static_cast<char>(0xA0 | (dots >> 6));
    *end++ = static_cast<char>(0x80 | (dots & 0x3F));
  }
  *end = '\0';
}

void draw_lcd(const LcdView &view, FILE *out) {
  auto rule = [out](const char *left, const char *right) {
    fputs(left, out);
    for (int i = 0; i < kLcdColumns / 2; ++i)
      fputs("─", out);
    fputs(right, out);
  };
  rule("┌", "┐\n");
  for (int line = 0; line < kBrailleLines; ++line) {
    char text[kBrailleSize];
    braille_line(view, line, text);
    fprintf(out, "│%s│\n", text);
  }
  rule("└", "┘\n");
  fprintf(out, "display %s, backlight %s, contrast %d%s\n",
          view.registers.display_on ? "on" : "off", view.is_lit ? "on" : "off",
          view.registers.contrast, view.has_frame ? "" : ", no display memory (medium missing)");
}

}  // namespace vboard
