// The controller of the board's display: 128 columns by 64 rows, eight pages of eight rows, one
// byte for each column of a page, bit 0 on top. It takes single command and data bytes.

#ifndef VBOARD_BOARD_LCD_CONTROLLER_H
#define VBOARD_BOARD_LCD_CONTROLLER_H
#include "vboard/board/node.h"
#include "vboard/board/settings.h"

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

// A register as a setting of the display's node file; the default is its value at power-on.
struct LcdRegister {
  Setting setting;
  std::uint8_t LcdRegisters::*field;
};

inline constexpr LcdRegister kLcdRegisters[] = {
    {{.key = "display_on", .kind = SettingKind::kFlag, .otherwise = "0", .help = "commands AE, AF"},
     &LcdRegisters::display_on},
    {{.key = "all_points", .kind = SettingKind::kFlag, .otherwise = "0", .help = "commands A4, A5"},
     &LcdRegisters::all_points},
    {{.key = "inverse", .kind = SettingKind::kFlag, .otherwise = "0", .help = "commands A6, A7"},
     &LcdRegisters::inverse},
    {{.key = "rows_reversed",
      .kind = SettingKind::kFlag,
      .otherwise = "0",
      .help = "commands C0, C8; the glass is mounted so that 1 is upright"},
     &LcdRegisters::rows_reversed},
    {{.key = "columns_reversed",
      .kind = SettingKind::kFlag,
      .otherwise = "0",
      .help = "commands A0, A1"},
     &LcdRegisters::columns_reversed},
    {{.key = "start_line",
      .kind = SettingKind::kNumber,
      .otherwise = "0",
      .help = "commands 40 to 7F",
      .most = 63},
     &LcdRegisters::start_line},
    {{.key = "contrast",
      .kind = SettingKind::kNumber,
      .otherwise = "32",
      .help = "command 81 and its second byte",
      .most = 63},
     &LcdRegisters::contrast},
    {{.key = "resistor_ratio",
      .kind = SettingKind::kNumber,
      .otherwise = "4",
      .help = "commands 20 to 27",
      .most = 7},
     &LcdRegisters::resistor_ratio},
    {{.key = "bias", .kind = SettingKind::kFlag, .otherwise = "0", .help = "commands A2, A3"},
     &LcdRegisters::bias},
    {{.key = "power",
      .kind = SettingKind::kNumber,
      .otherwise = "0",
      .help = "commands 28 to 2F",
      .most = 7},
     &LcdRegisters::power},
    {{.key = "booster",
      .kind = SettingKind::kNumber,
      .otherwise = "0",
      .help = "command F8 and its second byte",
      .most = 3},
     &LcdRegisters::booster},
    {{.key = "page",
      .kind = SettingKind::kNumber,
      .otherwise = "0",
      .help = "commands B0 to BF",
      .most = 15},
     &LcdRegisters::page},
    {{.key = "column",
      .kind = SettingKind::kNumber,
      .otherwise = "0",
      .help = "commands 00 to 1F",
      .most = 255},
     &LcdRegisters::column},
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
