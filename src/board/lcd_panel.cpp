// The display's controller: initialisation, addressing and drawing by single bytes.

#include "board/lcd_panel.h"

#include "platform/driver/lcd.h"

#include <sys/ioctl.h>

#include <stdio.h>
#include <unistd.h>

namespace {

constexpr int kCommandErrorLine = 122;
constexpr int kDataErrorLine = 138;
constexpr int kInitErrorLine = 254;

constexpr int kToggleRounds = 128;
constexpr useconds_t kTogglePauseUs = 300'000;
constexpr int kBlackPages = LCD_PAGES / 2;
constexpr std::uint8_t kWhite = 0x00;
constexpr std::uint8_t kBlack = 0xFF;

void fill_page(int page, std::uint8_t value) {
  for (int column = 0; column < LCD_COLUMNS; ++column)
    lcd_set_byte(static_cast<std::uint8_t>(page), static_cast<std::uint8_t>(column), value);
}

}  // namespace

int lcd_device = -1;

// clang-format off
const std::array<std::uint8_t, 22> kLcdInitCommands = {
    0xE2,              // reset
    0xAE,              // display off
    0xEE,              // end of read-modify-write
    0x40,              // start line 0
    0xA2,              // bias
    0xA0,              // segment direction
    0xC8,              // common direction
    0xA6,              // not inverted
    0x24,              // regulator resistor ratio
    0x81, 0x3F,        // contrast
    0x2F,              // power control: booster, regulator and follower on
    0xF8, 0x01,        // booster ratio
    0xFF, 0x72, 0xFE,  // settings of this panel, up to 0x9E
    0xD4, 0x90, 0x9E,
    0xA4,              // show the memory, not all points
    0xAF,              // display on
};
// clang-format on

std::array<std::uint8_t, 3> lcd_address_commands(std::uint8_t page, std::uint8_t column) {
  return {static_cast<std::uint8_t>(column & 0x0F),
          static_cast<std::uint8_t>(0x10 | ((column >> 4) & 0x0F)),
          static_cast<std::uint8_t>(0xB0 | page)};
}

int lcd_write_cmd(std::uint8_t command) {
  if (lcd_device == -1)
    return -1;
  const int result = ioctl(lcd_device, LCD_SET_CMD_WRITE, &command);
  if (result < 0)
    printf("[vrq]%s:%d LCD_SET_CMD_WRITE err, ret=%d\n", "lcd_write_cmd", kCommandErrorLine,
           result);
  return result;
}

int lcd_write_data(std::uint8_t data) {
  if (lcd_device == -1)
    return -1;
  const int result = ioctl(lcd_device, LCD_SET_DATA_WRITE, &data);
  if (result < 0)
    printf("[vrq]%s:%d LCD_SET_DATA_WRITE err, ret=%d\n", "lcd_write_data", kDataErrorLine, result);
  return result;
}

void lcd_set_byte(std::uint8_t page, std::uint8_t column, std::uint8_t value) {
  for (const std::uint8_t command : lcd_address_commands(page, column))
    lcd_write_cmd(command);
  lcd_write_data(value);
}

void lcd_fill(std::uint8_t value) {
  for (int page = 0; page < LCD_PAGES; ++page)
    fill_page(page, value);
}

int lcd_init() {
  int result = -1;
  for (const std::uint8_t command : kLcdInitCommands) {
    result = lcd_write_cmd(command);
    if (result < 0) {
      printf("[vrq]%s:%d lcd_write_cmd err, ret=%d\n", "lcd_init", kInitErrorLine, result);
      break;
    }
  }
  return result;
}

// Every round draws the same picture: a panel that loses bytes flickers.
void lcd_toggle_test() {
  for (int round = 0; round < kToggleRounds; ++round) {
    for (int page = 0; page < LCD_PAGES; ++page)
      fill_page(page, page < kBlackPages ? kBlack : kWhite);
    usleep(kTogglePauseUs);
  }
}
