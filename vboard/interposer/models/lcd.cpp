// /dev/lcd: the display's driver. Single bytes go to the controller
// (vboard/board/lcd_controller.h); write() puts a frame, or the first bytes of one, into display
// memory, which is the medium.
//
// A picture drawn byte by byte takes half a million requests, so the registers live in the open
// file and the frame is mapped. Modes are stored at once, addresses at the close.

#include "platform/driver/lcd.h"
#include "vboard/board/lcd_controller.h"
#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>

#include <algorithm>
#include <array>
#include <iterator>

namespace vboard {
namespace {

using enum Direction;
using enum SettingKind;

static_assert(kLcdFrameSize == LCD_FRAME_SIZE);

constexpr Setting kOwnSettings[] = {
    {.key = "returns",
     .kind = kWord,
     .otherwise = "zero",
     .help = "what a write answers: zero, as the board's driver does, or count",
     .words = "zero count"},
    {.key = "backlight", .kind = kFlag, .otherwise = "0", .help = "1: lit"},
};

constexpr auto kSettings = [] {
  std::array<Setting, std::size(kOwnSettings) + std::size(kLcdRegisters)> all = {};
  auto next = std::copy(std::begin(kOwnSettings), std::end(kOwnSettings), all.begin());
  for (const LcdRegister &one : kLcdRegisters)
    *next++ = one.setting;
  return all;
}();

unsigned char *frame_of(OpenFile &file) {
  return static_cast<unsigned char *>(map_medium(file, kLcdFrameSize));
}

int store_registers(OpenFile &file) {
  auto change = [](Node &node, void *registers) {
    lcd_store(*static_cast<const LcdRegisters *>(registers), node);
  };
  return change_settings(file, change, &state_of<LcdRegisters>(file));
}

int lcd_open(OpenFile &file) {
  if (frame_of(file) == nullptr)
    return -EIO;
  lcd_load(file.node, state_of<LcdRegisters>(file));
  return 0;
}

void lcd_close(OpenFile &file) {
  store_registers(file);
}

ssize_t lcd_write(OpenFile &file, const UserMemory &from, std::int64_t) {
  unsigned char frame[kLcdFrameSize];
  const std::size_t taken = std::min(from.size, kLcdFrameSize);
  if (const int error = copy_in(frame, from.address, taken))
    return error;
  if (const int error = write_medium(file, frame, taken, 0))
    return error;
  return setting_text(file, "returns") == "count" ? static_cast<ssize_t>(taken) : 0;
}

int send_command(OpenFile &file, std::uint8_t &command) {
  return lcd_command(state_of<LcdRegisters>(file), command) ? store_registers(file) : 0;
}

int send_data(OpenFile &file, std::uint8_t &data) {
  unsigned char *frame = frame_of(file);
  if (frame == nullptr)
    return -EIO;
  lcd_data(state_of<LcdRegisters>(file), frame, data);
  return 0;
}

int set_backlight(OpenFile &file, std::uint8_t &value) {
  if (value != LCD_BACKLIGHT_ON && value != LCD_BACKLIGHT_OFF)
    return -EINVAL;
  return store_number(file, "backlight", value == LCD_BACKLIGHT_ON);
}

// clang-format off
constexpr Request kRequests[] = {
    {.number = LCD_SET_CMD_WRITE,  .name = "LCD_SET_CMD_WRITE",  .direction = kIn, .handler = answers<send_command>},
    {.number = LCD_SET_DATA_WRITE, .name = "LCD_SET_DATA_WRITE", .direction = kIn, .handler = answers<send_data>},
    {.number = LCD_SET_BACKLIGHT,  .name = "LCD_SET_BACKLIGHT",  .direction = kIn, .handler = answers<set_backlight>},
};
// clang-format on

}  // namespace

// The display cannot be read back.
extern constexpr Model kLcdModel = {
    .name = "lcd",
    .settings = kSettings,
    .requests = kRequests,
    .medium_size = kLcdFrameSize,
    .open = lcd_open,
    .close = lcd_close,
    .write = lcd_write,
};

}  // namespace vboard
