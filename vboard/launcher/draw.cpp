#include "vboard/launcher/draw.h"

#include "vboard/base/calendar.h"
#include "vboard/base/decimal.h"
#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/attributes.h"
#include "vboard/board/gyro_chips.h"
#include "vboard/board/uboot_env.h"
#include "vboard/interposer/models/models.h"
#include "vboard/launcher/draw_files.h"
#include "vboard/launcher/draw_lcd.h"
#include "vboard/launcher/draw_system.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string_view>

namespace vboard {
namespace {

constexpr std::size_t kFlashSize = 64 << 10;
constexpr std::size_t kEnvironmentSize = 16 << 10;
constexpr std::size_t kBlockSize = 256;

void print(FILE *out, std::string_view text) {
  // An empty text may have no place at all, which fwrite() does not take.
  if (!text.empty())
    fwrite(text.data(), 1, text.size(), out);
}

void print_label(FILE *out, std::string_view label) {
  fprintf(out, "%-18.*s ", static_cast<int>(label.size()), label.data());
}

void print_setting(FILE *out, const BoardNode &node, std::string_view key,
                   const char *otherwise = "") {
  const std::string_view value = text_of(node, key);
  print(out, value.empty() ? otherwise : value);
}

void print_hex(FILE *out, const unsigned char *bytes, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i)
    fprintf(out, i == 0 ? "%02x" : " %02x", bytes[i]);
}

void print_ascii(FILE *out, const unsigned char *bytes, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i)
    fputc(bytes[i] >= 0x20 && bytes[i] < 0x7F ? bytes[i] : '.', out);
}

void dump(FILE *out, const unsigned char *bytes, std::size_t size) {
  for (std::size_t at = 0; at < size; at += 16) {
    const std::size_t piece = std::min<std::size_t>(16, size - at);
    fprintf(out, "%04zx  ", at);
    print_hex(out, bytes + at, piece);
    fprintf(out, "%*s  ", static_cast<int>(3 * (16 - piece)), "");
    print_ascii(out, bytes + at, piece);
    fputc('\n', out);
  }
}

// An attribute's value, "absent" when the board lacks it.
std::string_view load_attribute(const char *board, std::string_view name, char (&text)[256]) {
  const std::ptrdiff_t length = read_board_file(board, name, text, sizeof text);
  return length < 0 ? "absent" : attribute_value({text, static_cast<std::size_t>(length)});
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

void mtd_line(const char *board, const BoardNode &node, FILE *out) {
  static unsigned char flash[kFlashSize];
  const std::ptrdiff_t size = read_medium(board, text_of(node, "medium"), flash, sizeof flash);
  fputs("NOR flash, erase block ", out);
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

void draw_devices(const char *board, FILE *out) {
  dirent **names;
  const int count = list_folder(board, "dev", names);
  for (int i = 0; i < count; ++i) {
    FixedText<300> label;
    BoardNode node;
    append_text(label, "dev/", names[i]->d_name);
    if (load_board_node(board, label.view(), node) < 0)
      continue;
    fprintf(out, "/%-17s ", label.c_str());
    const Drawing *drawing = find_drawing(node);
    if (drawing != nullptr)
      drawing->line(board, node, out);
    else
      print_setting(out, node, "model", "no model");
    fputc('\n', out);
  }
  free_names(names, count);
}

void draw_displays(const char *board, FILE *out) {
  BoardNode node;
  if (load_board_node(board, "dev/lcd", node) == 0 && node.table.model == &kLcdModel)
    draw_lcd(lcd_view(board, node), out);
  fputc('\n', out);
}

// Attributes.

int count_wires(const char *board, std::string_view from) {
  Node wires;
  int count = 0;
  if (load_board_text(board, "sys.wires", wires) < 0)
    return 0;
  std::string_view rest(wires.text, wires.length);
  std::string_view line;
  while (take_line(rest, line))
    count += take_word(line) == from;
  return count;
}

void draw_alarm(const char *board, FILE *out) {
  char text[256];
  print_label(out, "alarm");
  fputs("inputs", out);
  for (int input = 0; input < 8; ++input) {
    FixedText<64> name;
    append_text(name, "sys/class/gpio/gpio");
    append_decimal(name, 40 + input);
    append_text(name, "/value");
    fputc(' ', out);
    print(out, load_attribute(board, name.view(), text));
  }
  fputs(", output ", out);
  print(out, load_attribute(board, "sys/class/gpio/gpio48/value", text));
  const int wires = count_wires(board, "/sys/class/gpio/gpio48/value");
  if (wires > 0)
    fprintf(out, ", plug loops it to %d inputs", wires);
  fputc('\n', out);
}

void draw_attribute(const char *board, FILE *out, const char *label, const char *name) {
  char text[256];
  print_label(out, label);
  print(out, load_attribute(board, name, text));
  fputc('\n', out);
}

void draw_boot_block(const char *board, FILE *out) {
  unsigned char block[kBlockSize];
  print_label(out, "boot parameters");
  const std::ptrdiff_t size =
      read_board_file(board, "sys/bus/nvmem/devices/bootparam0/nvmem", block, sizeof block);
  if (size == static_cast<std::ptrdiff_t>(sizeof block))
    fprintf(out, "boot counter (byte 250) %d\n", block[250]);
  else
    fputs("absent\n", out);
}

void draw_cpld(const char *board, FILE *out) {
  char text[256];
  BoardNode node;
  print_label(out, "cpld");
  print(out, load_attribute(board, "sys/class/firmware/cpld/status", text));
  const std::string_view error = load_attribute(board, "sys/class/firmware/cpld/error", text);
  if (!error.empty()) {
    fputs(", error ", out);
    print(out, error);
  }
  unsigned char head[16];
  std::ptrdiff_t size = -ENOENT;
  if (load_board_node(board, "firmware/cpld", node) == 0)
    size = read_medium(board, text_of(node, "medium"), head, sizeof head);
  if (size > 0) {
    fputs(", holds ", out);
    print_hex(out, head, static_cast<std::size_t>(size));
    fputs(" ...\n", out);
  } else {
    fputs(", as delivered\n", out);
  }
}

void draw_interfaces(const char *board, FILE *out) {
  dirent **names;
  const int count = list_folder(board, "net", names);
  print_label(out, "network");
  for (int i = 0; i < count; ++i) {
    FixedText<300> name;
    BoardNode node;
    append_text(name, "net/", names[i]->d_name);
    if (load_board_node(board, name.view(), node) < 0)
      continue;
    fprintf(out, i == 0 ? "%s " : ", %s ", names[i]->d_name);
    print_setting(out, node, "ipv4", "no address");
  }
  fputs(count == 0 ? "no interface\n" : "\n", out);
  free_names(names, count);
}

void draw_system(const char *board, FILE *out, const char *label,
                 void (*line)(const char *board, FILE *out)) {
  print_label(out, label);
  line(board, out);
  fputc('\n', out);
}

void draw_faults(const char *board, FILE *out) {
  static char text[kFlashSize];
  const std::ptrdiff_t size = read_board_file(board, "faults", text, sizeof text);
  std::string_view rest(text, static_cast<std::size_t>(std::max<std::ptrdiff_t>(size, 0)));
  std::string_view line;
  int count = 0;
  while (take_line(rest, line)) {
    line = trimmed(line);
    if (line.empty() || line[0] == '#')
      continue;
    print_label(out, count++ == 0 ? "faults" : "");
    print(out, line);
    fputc('\n', out);
  }
  if (count == 0) {
    print_label(out, "faults");
    fputs("none\n", out);
  }
}

bool is_text(const unsigned char *bytes, std::size_t size) {
  return std::all_of(bytes, bytes + size, [](unsigned char byte) {
    return byte >= 0x20 || byte == '\n' || byte == '\t';
  });
}

// A file of the board as it stands, as text or in hexadecimal.
int draw_file(const char *board, std::string_view name, FILE *out) {
  static unsigned char bytes[kFlashSize];
  const std::ptrdiff_t size = read_board_file(board, name, bytes, sizeof bytes);
  if (size < 0)
    return static_cast<int>(size);
  const std::size_t length = static_cast<std::size_t>(size);
  if (is_text(bytes, length))
    print(out, {reinterpret_cast<const char *>(bytes), length});
  else
    dump(out, bytes, length);
  return 0;
}

}  // namespace

int draw_board(const char *board, FILE *out) {
  char text[256];
  const std::ptrdiff_t size = read_board_file(board, "board", text, sizeof text);
  if (size < 0)
    return static_cast<int>(size);
  fprintf(out, "%s: ", board);
  print(out, attribute_value({text, static_cast<std::size_t>(size)}));
  fputc('\n', out);
  draw_displays(board, out);
  draw_devices(board, out);
  fputc('\n', out);
  draw_attribute(board, out, "buzzer", "sys/class/leds/buzzer/brightness");
  draw_alarm(board, out);
  draw_attribute(board, out, "vga", "sys/class/drm/card0-VGA-1/status");
  draw_boot_block(board, out);
  draw_cpld(board, out);
  draw_interfaces(board, out);
  draw_system(board, out, "memory blocks", memory_blocks_line);
  draw_system(board, out, "overlays", overlays_line);
  draw_system(board, out, "process events", process_events_line);
  draw_faults(board, out);
  return 0;
}

int draw_node(const char *board, const char *node, FILE *out) {
  const BoardPath board_file = board_name(node);
  const std::string_view name = board_file.view();
  // A name that leads out of the board is none of its nodes.
  if (const int error = draw_file(board, name, out))
    return error == -EINVAL ? -ENOENT : error;

  BoardNode settings;
  if (!name.starts_with("dev/") || load_board_node(board, name, settings) < 0)
    return 0;
  const Drawing *drawing = find_drawing(settings);
  if (drawing == nullptr)
    return 0;
  fputc('\n', out);
  if (drawing->detail != nullptr)
    drawing->detail(board, settings, out);
  else
    drawing->line(board, settings, out);
  if (drawing->detail == nullptr)
    fputc('\n', out);
  return 0;
}

}  // namespace vboard
