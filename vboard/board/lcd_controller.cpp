#include "vboard/board/lcd_controller.h"

namespace vboard {
namespace {

// The controller's memory is wider than the panel: columns 128 to 131 exist and show nowhere.
constexpr std::uint8_t kMemoryColumns = 132;
constexpr int kPages = 8;

constexpr std::uint8_t kSetContrast = 0x81;
constexpr std::uint8_t kSetIndicator = 0xAD;
constexpr std::uint8_t kSetBooster = 0xF8;
// The maker's own tuning commands, which a person at the display never sees. This one has a second
// byte; taken for a command, the 72 that the board's drivers send there would scroll the picture.
constexpr std::uint8_t kSetTuning = 0xFF;

// E2: what the controller's reset pin would also do. Display memory, display on/off and the column
// direction stay.
void reset(LcdRegisters &registers) {
  registers.page = 0;
  registers.column = 0;
  registers.start_line = 0;
  registers.contrast = 32;
  registers.resistor_ratio = 4;
  registers.rows_reversed = 0;
  registers.read_modify_write = 0;
}

void second_byte(LcdRegisters &registers, std::uint8_t value) {
  if (registers.pending == kSetContrast)
    registers.contrast = value & 0x3F;
  else if (registers.pending == kSetBooster)
    registers.booster = value & 0x03;
  registers.pending = 0;
}

std::uint8_t flag(std::uint8_t command) {
  return command & 1;
}

}  // namespace

void lcd_load(const Node &node, LcdRegisters &out) {
  LcdRegisters registers = {};
  for (const LcdRegister &one : kLcdRegisters)
    registers.*one.field =
        static_cast<std::uint8_t>(setting_number_of(node, one.setting, one.setting.key));
  out = registers;
}

bool lcd_store(const LcdRegisters &registers, Node &node) {
  for (const LcdRegister &one : kLcdRegisters) {
    if (!set_node_number(node, one.setting.key, registers.*one.field))
      return false;
  }
  return true;
}

bool lcd_command(LcdRegisters &registers, std::uint8_t command) {
  if (registers.pending != 0) {
    second_byte(registers, command);
    return true;
  }
  // The three addresses come first: a picture drawn byte by byte is almost only these.
  if (command <= 0x0F) {
    registers.column = static_cast<std::uint8_t>((registers.column & 0xF0) | command);
    return false;
  }
  if (command <= 0x1F) {
    registers.column = static_cast<std::uint8_t>((registers.column & 0x0F) | (command << 4));
    return false;
  }
  if ((command & 0xF0) == 0xB0) {
    registers.page = command & 0x0F;
    return false;
  }
  if (command <= 0x27) {
    registers.resistor_ratio = command & 0x07;
    return true;
  }
  if (command <= 0x2F) {
    registers.power = command & 0x07;
    return true;
  }
  if (command >= 0x40 && command <= 0x7F) {
    registers.start_line = command & 0x3F;
    return true;
  }
  if ((command & 0xF0) == 0xC0) {
    registers.rows_reversed = (command >> 3) & 1;
    return true;
  }
  switch (command) {
    case kSetContrast:
    case kSetIndicator:
    case kSetBooster:
    case kSetTuning:
      registers.pending = command;
      return false;
    case 0xA0:
    case 0xA1:
      registers.columns_reversed = flag(command);
      return true;
    case 0xA2:
    case 0xA3:
      registers.bias = flag(command);
      return true;
    case 0xA4:
    case 0xA5:
      registers.all_points = flag(command);
      return true;
    case 0xA6:
    case 0xA7:
      registers.inverse = flag(command);
      return true;
    case 0xAE:
    case 0xAF:
      registers.display_on = flag(command);
      return true;
    case 0xE0:
      registers.read_modify_write = 1;
      registers.saved_column = registers.column;
      return false;
    case 0xEE:
      if (registers.read_modify_write) {
        registers.read_modify_write = 0;
        registers.column = registers.saved_column;
      }
      return false;
    case 0xE2:
      reset(registers);
      return true;
    default:
      return false;
  }
}

void lcd_data(LcdRegisters &registers, unsigned char *frame, std::uint8_t data) {
  if (registers.page < kPages && registers.column < kLcdColumns)
    frame[registers.page * kLcdColumns + registers.column] = data;
  // The column stops behind the last one; it does not go on with the next page.
  if (registers.column < kMemoryColumns)
    ++registers.column;
}

bool lcd_is_dark(const LcdRegisters &registers, const unsigned char *frame, int column, int row) {
  if (!registers.display_on)
    return false;
  if (registers.all_points)
    return true;
  const int line = registers.rows_reversed ? row : kLcdRows - 1 - row;
  const int memory_row = (line + registers.start_line) % kLcdRows;
  const int memory_column = registers.columns_reversed ? kLcdColumns - 1 - column : column;
  const bool set = (frame[memory_row / 8 * kLcdColumns + memory_column] >> (memory_row % 8)) & 1;
  return set != (registers.inverse != 0);
}

}  // namespace vboard
