// The controller of the board's display: 128 columns by 64 rows, eight pages of eight rows, one
// byte for each column of a page, bit 0 on top. It takes single command and data bytes.

#ifndef VBOARD_BOARD_LCD_CONTROLLER_H
#define VBOARD_BOARD_LCD_CONTROLLER_H

#include "vboard/board/node.h"

#include <cstddef>
#include <cstdint>

namespace vboard {

inline constexpr int kLcdColumns = 128;
inline constexpr int kLcdRows = 64;
inline constexpr std::size_t kLcdFrameSize = 1024;

struct LcdRegisters {
  std::uint8_t page;
  std::uint8_t column;
  std::uint8_t start_line;
  std::uint8_t contrast;        // 0..63
  std::uint8_t resistor_ratio;  // 0..7
  std::uint8_t power;           // bit 2 booster, bit 1 regulator, bit 0 follower
  std::uint8_t booster;         // 0..3
  std::uint8_t bias;            // 0: 1/9, 1: 1/7
  std::uint8_t display_on;
  std::uint8_t all_points;
  std::uint8_t inverse;
  std::uint8_t columns_reversed;
  std::uint8_t rows_reversed;  // the panel is mounted so that its picture is upright when set
  std::uint8_t read_modify_write;
  std::uint8_t saved_column;  // to return to at the end of read-modify-write
  std::uint8_t pending;       // a command that waits for its second byte, 0 for none
};

// The registers as settings of the display's node file; a missing or impossible value is the
// power-on value of the register. lcd_store() is false when the file has no room left.
void lcd_load(const Node &node, LcdRegisters &out);
bool lcd_store(const LcdRegisters &registers, Node &node);

// One command byte. True when the command is a mode (worth storing at once), false for page and
// column addresses and for codes that the controller does not know, which it ignores.
bool lcd_command(LcdRegisters &registers, std::uint8_t command);
// One data byte, to the current page and column; the column moves on.
void lcd_data(LcdRegisters &registers, unsigned char *frame, std::uint8_t data);

// Whether the point at the panel's column and row is dark for a person who looks at it.
bool lcd_is_dark(const LcdRegisters &registers, const unsigned char *frame, int column, int row);

}  // namespace vboard

#endif
