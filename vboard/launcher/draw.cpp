#include "vboard/launcher/draw.h"

#include "vboard/base/text.h"
#include "vboard/board/attributes.h"
#include "vboard/interposer/models/models.h"
#include "vboard/launcher/draw_devices.h"
#include "vboard/launcher/draw_files.h"
#include "vboard/launcher/draw_lcd.h"
#include "vboard/launcher/draw_settings.h"
#include "vboard/launcher/draw_system.h"
#include "vboard/launcher/draw_text.h"

#include <errno.h>
#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <string_view>

namespace vboard {
namespace {

constexpr std::size_t kLargestFile = 64 << 10;
constexpr std::size_t kBlockSize = 256;

void print_label(FILE *out, std::string_view label) {
  fprintf(out, "%-18.*s ", static_cast<int>(label.size()), label.data());
}

// An attribute's value, "absent" when the board lacks it.
std::string_view load_attribute(const char *board, std::string_view name, char (&text)[256]) {
  const std::ptrdiff_t length = read_board_file(board, name, text, sizeof text);
  return length < 0 ? "absent" : attribute_value({text, static_cast<std::size_t>(length)});
}

// Devices.

void draw_displays(const char *board, FILE *out) {
  bool any = false;
  each_node(board, [&](std::string_view name) {
    BoardNode node;
    if (load_board_node(board, name, node) < 0 || node.table.model != &kLcdModel)
      return;
    draw_lcd(lcd_view(board, node), out);
    any = true;
  });
  fputs(any ? "\n" : "", out);
}

void draw_devices(const char *board, FILE *out) {
  bool any = false;
  each_node(board, [&](std::string_view name) {
    BoardNode node;
    const std::string_view device = powered_name(name);
    if (!device.starts_with("dev/") || load_board_node(board, name, node) < 0)
      return;
    fprintf(out, "/%-17.*s ", static_cast<int>(device.size()), device.data());
    fputs(device != name ? "switched off, " : "", out);
    draw_device_line(board, node, out);
    fputc('\n', out);
    any = true;
  });
  fputs(any ? "\n" : "", out);
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

// What has no device: a line of the page each, without the label and the line's end.

constexpr char kBuzzer[] = "sys/class/leds/buzzer/brightness";
constexpr char kAlarmOutput[] = "sys/class/gpio/gpio48/value";
constexpr char kVga[] = "sys/class/drm/card0-VGA-1/status";
constexpr char kBootBlock[] = "sys/bus/nvmem/devices/bootparam0/nvmem";
constexpr char kCpld[] = "sys/class/firmware/cpld/status";

void draw_attribute(const char *board, const char *name, FILE *out) {
  char text[256];
  print(out, load_attribute(board, name, text));
}

void alarm_line(const char *board, FILE *out) {
  fputs("inputs", out);
  for (int input = 0; input < 8; ++input) {
    FixedText<64> name;
    append_text(name, "sys/class/gpio/gpio");
    append_decimal(name, 40 + input);
    append_text(name, "/value");
    fputc(' ', out);
    draw_attribute(board, name.c_str(), out);
  }
  fputs(", output ", out);
  draw_attribute(board, kAlarmOutput, out);
  BoardPath output;
  append_text(output, "/", kAlarmOutput);
  if (const int wires = count_wires(board, output.view()); wires > 0)
    fprintf(out, ", plug loops it to %d inputs", wires);
}

void boot_block_line(const char *board, FILE *out) {
  unsigned char block[kBlockSize];
  if (read_board_file(board, kBootBlock, block, sizeof block) == std::ssize(block))
    fprintf(out, "boot counter (byte 250) %d", block[250]);
  else
    fputs("too short", out);
}

void cpld_line(const char *board, FILE *out) {
  char text[256];
  BoardNode node;
  draw_attribute(board, kCpld, out);
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
    fputs(" ...", out);
  } else {
    fputs(", as delivered", out);
  }
}

void interfaces_line(const char *board, FILE *out) {
  int count = 0;
  each_node(board, [&](std::string_view name) {
    BoardNode node;
    if (!name.starts_with("net/") || load_board_node(board, name, node) < 0)
      return;
    const std::string_view address = text_of(node, "ipv4");
    fputs(count++ == 0 ? "" : ", ", out);
    print(out, name.substr(name.find('/') + 1));
    fputc(' ', out);
    print(out, address.empty() ? "no address" : address);
  });
  fputs(count == 0 ? "no interface" : "", out);
}

// A line of the page for a board that has the file.
struct PageLine {
  const char *label;
  const char *file;
  void (*draw)(const char *board, FILE *out);  // null for an attribute's value
};

// clang-format off
constexpr PageLine kPageLines[] = {
    {.label = "buzzer",          .file = kBuzzer,                        .draw = nullptr},
    {.label = "alarm",           .file = kAlarmOutput,                   .draw = alarm_line},
    {.label = "vga",             .file = kVga,                           .draw = nullptr},
    {.label = "boot parameters", .file = kBootBlock,                     .draw = boot_block_line},
    {.label = "cpld",            .file = kCpld,                          .draw = cpld_line},
    {.label = "network",         .file = "net",                          .draw = interfaces_line},
    {.label = "memory blocks",   .file = "sys/devices/system/memory",    .draw = memory_blocks_line},
    {.label = "overlays",        .file = "sys/kernel/config/device-tree/overlays", .draw = overlays_line},
    {.label = "process events",  .file = "netlink/connector",            .draw = process_events_line},
};
// clang-format on

void draw_page_line(const char *board, const PageLine &line, FILE *out) {
  BoardPath file;
  struct stat status;
  if (find_board_file(board, line.file, file) < 0 || stat(file.c_str(), &status) < 0)
    return;
  print_label(out, line.label);
  if (line.draw != nullptr)
    line.draw(board, out);
  else
    draw_attribute(board, line.file, out);
  fputc('\n', out);
}

// What a person has changed.

void draw_changes(const char *board, const char *board_template, FILE *out) {
  struct Page {
    FILE *out;
    std::string_view name;
    int count;
  } page = {out, {}, 0};
  each_node(board, [&](std::string_view name) {
    BoardNode node;
    if (load_board_node(board, name, node) < 0)
      return;
    page.name = powered_name(name);
    each_change(
        node, fresh_node(board_template, name),
        [](std::string_view change, void *context) {
          Page &to = *static_cast<Page *>(context);
          print_label(to.out, to.count++ == 0 ? "changed" : "");
          fputs(to.name.starts_with("dev/") ? "/" : "", to.out);
          print(to.out, to.name);
          fputc(' ', to.out);
          print(to.out, change);
          fputc('\n', to.out);
        },
        &page);
  });
  if (page.count > 0)
    return;
  print_label(out, "changed");
  fputs("nothing\n", out);
}

void draw_faults(const char *board, FILE *out) {
  static char text[kLargestFile];
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
  static unsigned char bytes[kLargestFile];
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

int draw_board(const char *board, const char *board_template, FILE *out) {
  char text[256];
  const std::ptrdiff_t size = read_board_file(board, "board", text, sizeof text);
  if (size < 0)
    return static_cast<int>(size);
  fprintf(out, "%s: ", board);
  print(out, attribute_value({text, static_cast<std::size_t>(size)}));
  fputc('\n', out);
  draw_displays(board, out);
  draw_devices(board, out);
  for (const PageLine &line : kPageLines)
    draw_page_line(board, line, out);
  draw_changes(board, board_template, out);
  draw_faults(board, out);
  return 0;
}

int draw_node(const char *board, const char *board_template, const char *node, FILE *out) {
  BoardPath name = board_name(node);
  BoardNode found;
  int error = load_board_node(board, name.view(), found);
  if (error == -ENOENT) {
    BoardPath unpowered;
    append_text(unpowered, kUnpowered, name.view());
    if (load_board_node(board, unpowered.view(), found) == 0) {
      name = unpowered;
      error = 0;
    }
  }
  if (error != 0) {
    // A name that leads out of the board is none of its files.
    error = draw_file(board, name.view(), out);
    return error == -EINVAL ? -ENOENT : error;
  }
  draw_settings(found, fresh_node(board_template, name.view()), out);
  draw_device(board, found, out);
  return 0;
}

}  // namespace vboard
