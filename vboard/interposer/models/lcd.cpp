// /dev/lcd: the display's driver. Single bytes go to the controller
// (vboard/board/lcd_controller.h); write() puts a frame, or the first bytes of one, into display
// memory, which is the medium.
//
//   returns     zero: write() answers 0, as the driver of a healthy board does; count: the bytes
//   backlight   1 lit, 0 dark (the request counts the other way round)
//   display_on, contrast, page, column, ...   the controller's registers
//
// A picture drawn byte by byte takes half a million requests, so the registers live in the open
// file and the frame is mapped. Modes are stored at once, addresses at the close.

#include "platform/driver/lcd.h"
#include "vboard/base/kernel.h"
#include "vboard/board/lcd_controller.h"
#include "vboard/interposer/models/models.h"

#include <errno.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>

namespace vboard {
namespace {

static_assert(kLcdFrameSize == LCD_FRAME_SIZE);

struct LcdState {
  LcdRegisters registers;
  unsigned char *frame;
  bool write_returns_count;
};

int store_registers(OpenFile &file) {
  auto change = [](Node &node, void *registers) {
    lcd_store(*static_cast<LcdRegisters *>(registers), node);
  };
  return update_node(file.file, change, &state_of<LcdState>(file).registers);
}

int lcd_open(OpenFile &file) {
  LcdState &state = state_of<LcdState>(file);
  if (sys_size(file.fd) < static_cast<std::int64_t>(kLcdFrameSize))
    return -EIO;
  int error = 0;
  void *frame =
      sys_mmap(nullptr, kLcdFrameSize, PROT_READ | PROT_WRITE, MAP_SHARED, file.fd, 0, error);
  if (frame == nullptr)
    return error;
  state.frame = static_cast<unsigned char *>(frame);
  state.write_returns_count = node_text(file.node, "returns") == "count";
  lcd_load(file.node, state.registers);
  return 0;
}

void lcd_close(OpenFile &file) {
  store_registers(file);
  sys_munmap(state_of<LcdState>(file).frame, kLcdFrameSize);
}

ssize_t lcd_write(OpenFile &file, const void *buffer, std::size_t size) {
  LcdState &state = state_of<LcdState>(file);
  const std::size_t taken = std::min(size, kLcdFrameSize);
  memcpy(state.frame, buffer, taken);
  return state.write_returns_count ? static_cast<ssize_t>(taken) : 0;
}

int set_backlight(OpenFile &file, std::uint8_t value) {
  if (value != LCD_BACKLIGHT_ON && value != LCD_BACKLIGHT_OFF)
    return -EINVAL;
  return store_number(file, "backlight", value == LCD_BACKLIGHT_ON);
}

int lcd_ioctl(OpenFile &file, std::uint32_t request, void *argument) {
  LcdState &state = state_of<LcdState>(file);
  const std::uint8_t value = *static_cast<const std::uint8_t *>(argument);
  switch (request) {
    case LCD_SET_CMD_WRITE:
      return lcd_command(state.registers, value) ? store_registers(file) : 0;
    case LCD_SET_DATA_WRITE:
      lcd_data(state.registers, state.frame, value);
      return 0;
    case LCD_SET_BACKLIGHT:
      return set_backlight(file, value);
    default:
      return -ENOTTY;
  }
}

using enum Direction;

constexpr Request kRequests[] = {
    {.number = LCD_SET_CMD_WRITE, .name = "LCD_SET_CMD_WRITE", .size = 1, .direction = kIn},
    {.number = LCD_SET_DATA_WRITE, .name = "LCD_SET_DATA_WRITE", .size = 1, .direction = kIn},
    {.number = LCD_SET_BACKLIGHT, .name = "LCD_SET_BACKLIGHT", .size = 1, .direction = kIn},
};

// The display cannot be read back.
ssize_t no_read(OpenFile &, void *, std::size_t) {
  return -EINVAL;
}

}  // namespace

extern constexpr Model kLcdModel = {
    .name = "lcd",
    .requests = kRequests,
    .medium_size = kLcdFrameSize,
    .medium_fill = 0,
    .open = lcd_open,
    .close = lcd_close,
    .read = no_read,
    .write = lcd_write,
    .ioctl = lcd_ioctl,
    .readable_at = nullptr,
};

}  // namespace vboard
