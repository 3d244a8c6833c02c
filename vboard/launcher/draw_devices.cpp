#include "vboard/launcher/draw_devices.h"

#include "vboard/base/calendar.h"
#include "vboard/base/decimal.h"
#include "vboard/base/kernel.h"
#include "vboard/board/gyro_chips.h"
#include "vboard/board/uboot_env.h"
#include "vboard/interposer/models/models.h"
#include "vboard/launcher/draw_files.h"
#include "vboard/launcher/draw_lcd.h"
#include "vboard/launcher/draw_system.h"
#include "vboard/launcher/draw_text.h"

#include <algorithm>
#include <string_view>

namespace vboard {
namespace {

constexpr std::size_t kFlashSize = 64 << 10;
constexpr std::size_t kEnvironmentSize = 16 << 10;
constexpr std::size_t kBlockSize = 256;

void print_setting(FILE *out, const BoardNode &node, std::string_view key,
                   const char *otherwise = "") {
  const std::string_view value = text_of(node, key);
  print(out, value.empty() ? otherwise : value);
}

// Devices: a line of the page, and what there is beside the settings.

void rtc_line(const char *, const BoardNode &node, FILE *out) {
  if (!is_on(node, "time_valid")) {
    fputs("lost its supply, time invalid", out);
  } else if (text_of(node, "set_to").empty()) {
    fputs("follows the board's calendar", out);
  } else {
    fputs("set to ", out);
    print_setting(out, node, "set_to");
    fputs(" at ", out);
    print_setting(out, node, "set_at", "?");
  }
  if (is_on(node, "stopped"))
    fputs(", stopped", out);
  else if (const std::string_view rate = text_of(node, "rate"); decimal_or(rate, 1) != 1)
    fprintf(out, ", runs at %.*s", static_cast<int>(rate.size()), rate.data());
}

// The board's clock file knows a watchdog that the last run left armed.
void watchdog_line(const char *board, const BoardNode &node, FILE *out) {
  BoardNode clock;
  std::int64_t reset_at = 0;
  if (load_board_node(board, "clock", clock) == 0)
    reset_at = number_of(clock, "reset_at");
  if (reset_at == 0) {
    fputs("stopped", out);
  } else {
    const std::int64_t left =
        saturated_sum(reset_at, -calendar_after(pc_calendar(), number_of(clock, "ahead_ns")));
    if (left > 0)
      fprintf(out, "armed, resets the board in %lld s",
              static_cast<long long>(left / 1'000'000'000));
    else
      fputs("has run out, the board is reset", out);
  }
  fputs(", limit ", out);
  print_setting(out, node, "timeout_s");
  fputs(" s, ", out);
  print_setting(out, node, "identity", "no name");
  if (!is_on(node, "bites"))
    fputs(", never bites", out);
}

void iccard_line(const char *board, const BoardNode &node, FILE *out) {
  unsigned char bytes[16];
  const std::ptrdiff_t size = read_medium(board, text_of(node, "medium"), bytes, sizeof bytes);
  if (size <= 0) {
    fputs("blank", out);
    return;
  }
  print_hex(out, bytes, static_cast<std::size_t>(size));
  fputs(" ...  ", out);
  print_ascii(out, bytes, static_cast<std::size_t>(size));
  if (number_of(node, "stuck_byte") >= 0 || is_on(node, "inverted"))
    fputs(", worn", out);
  if (is_on(node, "protected"))
    fputs(", protected", out);
}

void iccard_detail(const char *board, const BoardNode &node, FILE *out) {
  unsigned char bytes[kBlockSize];
  const std::ptrdiff_t size = read_medium(board, text_of(node, "medium"), bytes, sizeof bytes);
  dump(out, bytes, static_cast<std::size_t>(std::max<std::ptrdiff_t>(size, 0)));
}

void gyro_line(const char *, const BoardNode &node, FILE *out) {
  print_setting(out, node, "chip");
  if (!is_gyro_chip(text_of(node, "chip")))
    fputs(" (unknown)", out);
  fputs(", ", out);
  print_setting(out, node, "accel_g");
  fputs(" g, ", out);
  print_setting(out, node, "gyro_dps");
  fputs(" dps, every ", out);
  print_setting(out, node, "poll_ms");
  fputs(" ms, moved by ", out);
  print_setting(out, node, "medium", "nobody");
  if (is_on(node, "silent"))
    fputs(", silent", out);
}

void gyro_detail(const char *board, const BoardNode &node, FILE *out) {
  static char text[kFlashSize];
  const std::ptrdiff_t size = read_medium(board, text_of(node, "medium"), text, sizeof text);
  std::string_view rest(text, static_cast<std::size_t>(std::max<std::ptrdiff_t>(size, 0)));
  fputs("   seconds      ax g      ay g      az g    gx dps    gy dps    gz dps\n", out);
  Motion motion;
  int bad_lines = 0;
  while (next_motion(rest, motion, bad_lines))
    fprintf(out, "%10.3f%10.4f%10.4f%10.4f%10.2f%10.2f%10.2f\n", motion.seconds, motion.accel[0],
            motion.accel[1], motion.accel[2], motion.gyro[0], motion.gyro[1], motion.gyro[2]);
  if (bad_lines > 0)
    fprintf(out, "%d lines are not seven numbers and count as nothing\n", bad_lines);
}

const char *flash_name(std::string_view word) {
  if (word == "nand" || word == "mlc-nand")
    return "NAND flash";
  if (word == "dataflash")
    return "DataFlash";
  return word == "ram" ? "RAM" : "NOR flash";
}

void mtd_line(const char *board, const BoardNode &node, FILE *out) {
  static unsigned char flash[kFlashSize];
  const std::ptrdiff_t size = read_medium(board, text_of(node, "medium"), flash, sizeof flash);
  fprintf(out, "%s, erase block ", flash_name(text_of(node, "flash")));
  print_setting(out, node, "erase_size");
  if (size >= static_cast<std::ptrdiff_t>(kEnvironmentSize)) {
    const UbootEnv env = inspect_uboot_env(std::span(flash).first(kEnvironmentSize));
    if (env.valid)
      fprintf(out, ", environment of %d variables, %zu of %zu bytes", env.variables, env.used,
              kEnvironmentSize - 4);
    else
      fputs(", no valid environment", out);
  }
}

void mtd_detail(const char *board, const BoardNode &node, FILE *out) {
  static unsigned char flash[kFlashSize];
  const std::ptrdiff_t size = read_medium(board, text_of(node, "medium"), flash, sizeof flash);
  if (size < static_cast<std::ptrdiff_t>(kEnvironmentSize))
    return;
  auto image = std::span(flash).first(kEnvironmentSize);
  if (!inspect_uboot_env(image).valid) {
    dump(out, flash, kBlockSize);
    return;
  }
  std::size_t offset = 0;
  std::string_view entry;
  while (next_uboot_variable(image, offset, entry)) {
    print(out, entry);
    fputc('\n', out);
  }
}

void lcd_line(const char *board, const BoardNode &node, FILE *out) {
  LcdView view = lcd_view(board, node);
  std::size_t dark = 0;
  for (int row = 0; row < kLcdRows; ++row) {
    for (int column = 0; column < kLcdColumns; ++column)
      dark += lcd_is_dark(view.registers, view.frame, column, row);
  }
  fprintf(out, "%zu of %d points dark", dark, kLcdColumns * kLcdRows);
}

void lcd_detail(const char *board, const BoardNode &node, FILE *out) {
  draw_lcd(lcd_view(board, node), out);
}

struct Drawing {
  const Model *model;
  void (*line)(const char *board, const BoardNode &node, FILE *out);
  void (*detail)(const char *board, const BoardNode &node,
                 FILE *out);  // null for the settings alone
};

constexpr Drawing kDrawings[] = {
    {.model = &kGyroModel, .line = gyro_line, .detail = gyro_detail},
    {.model = &kIccardModel, .line = iccard_line, .detail = iccard_detail},
    {.model = &kKorcmemModel, .line = korcmem_line, .detail = nullptr},
    {.model = &kKorstorageModel, .line = korstorage_line, .detail = nullptr},
    {.model = &kLcdModel, .line = lcd_line, .detail = lcd_detail},
    {.model = &kMtdModel, .line = mtd_line, .detail = mtd_detail},
    {.model = &kPhysMemModel, .line = phys_mem_line, .detail = nullptr},
    {.model = &kRtcModel, .line = rtc_line, .detail = nullptr},
    {.model = &kSataDiskModel, .line = sata_disk_line, .detail = nullptr},
    {.model = &kWatchdogModel, .line = watchdog_line, .detail = nullptr},
};

const Drawing *find_drawing(const BoardNode &node) {
  for (const Drawing &drawing : kDrawings) {
    if (drawing.model == node.table.model)
      return &drawing;
  }
  return nullptr;
}

}  // namespace

void draw_device_line(const char *board, const BoardNode &node, FILE *out) {
  const Drawing *drawing = find_drawing(node);
  if (drawing != nullptr)
    drawing->line(board, node, out);
  else
    print(out, node.table.model != nullptr ? node.table.model->name : node.table.problem.view());
}

void draw_device(const char *board, const BoardNode &node, FILE *out) {
  const Drawing *drawing = find_drawing(node);
  if (drawing == nullptr)
    return;
  fputc('\n', out);
  if (drawing->detail != nullptr) {
    drawing->detail(board, node, out);
  } else {
    drawing->line(board, node, out);
    fputc('\n', out);
  }
}

}  // namespace vboard
