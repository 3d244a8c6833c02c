#include "vboard/launcher/draw_system.h"

#include "vboard/base/text.h"
#include "vboard/board/attributes.h"
#include "vboard/board/board_files.h"
#include "vboard/board/process_events.h"
#include "vboard/launcher/draw_files.h"
#include "vboard/launcher/draw_text.h"

#include <string.h>

#include <algorithm>
#include <string_view>

namespace vboard {
namespace {

constexpr int kMostRegions = 32;
constexpr int kMostBlocks = 64;
constexpr std::size_t kMostTimeline = 1 << 20;
constexpr std::size_t kIdentifySize = 512;
constexpr std::size_t kFirmwareAt = 46;  // words 23 to 26 of IDENTIFY DEVICE
constexpr std::size_t kFirmwareSize = 8;
constexpr std::size_t kModelAt = 54;  // words 27 to 46
constexpr std::size_t kModelSize = 40;
// LBA mid and high of SMART RETURN STATUS.
constexpr std::int64_t kSmartPassed = 0xC24F;
constexpr std::int64_t kSmartExceeded = 0x2CF4;

std::string_view numbered(const BoardNode &node, const char *word, int number) {
  FixedText<24> key;
  append_text(key, word);
  append_decimal(key, number);
  return text_of(node, key.view());
}

// A medium's lines as they stand, comments included; empty without a medium.
std::string_view load_timeline(const char *board, std::string_view medium) {
  static char text[kMostTimeline];
  const std::ptrdiff_t size = read_medium(board, medium, text, sizeof text);
  return {text, static_cast<std::size_t>(std::max<std::ptrdiff_t>(size, 0))};
}

// Texts of IDENTIFY DEVICE have the two bytes of every word swapped, and blanks behind them.
void print_identify_text(FILE *out, const unsigned char *bytes, std::size_t size) {
  char text[kModelSize];
  for (std::size_t i = 0; i < size; ++i) {
    const unsigned char byte = bytes[i ^ 1];
    text[i] = static_cast<char>(byte >= 0x20 && byte < 0x7F ? byte : '.');
  }
  print(out, trimmed({text, size}));
}

}  // namespace

// Devices.

void phys_mem_line(const char *, const BoardNode &node, FILE *out) {
  int count = 0;
  for (; count < kMostRegions; ++count) {
    std::string_view region = numbered(node, "region", count);
    const std::string_view name = take_word(region);
    std::int64_t first;
    std::int64_t last;
    if (!parse_number(take_word(region), first) || !parse_number(take_word(region), last))
      break;
    fputs(count == 0 ? "" : ", ", out);
    print(out, name);
    fprintf(out, " %08llx-%08llx", static_cast<long long>(first), static_cast<long long>(last));
  }
  if (count == 0)
    fputs("no regions", out);
}

// A block that nobody has used since the board was made is told by its name alone.
void korcmem_line(const char *, const BoardNode &node, FILE *out) {
  int count = 0;
  for (int id = 0; id < kMostBlocks; ++id) {
    std::string_view block = numbered(node, "block", id);
    if (block.empty())
      continue;
    fprintf(out, count++ == 0 ? "%d " : ", %d ", id);
    print(out, take_word(block));
    const std::string_view state = numbered(node, "state", id);
    if (!state.empty() && state != "reserved") {
      fputc(' ', out);
      print(out, state);
    }
  }
  fputs(count == 0 ? "no blocks" : "", out);
}

void sata_disk_line(const char *board, const BoardNode &node, FILE *out) {
  unsigned char identify[kIdentifySize];
  if (read_medium(board, text_of(node, "identify"), identify, kIdentifySize) !=
      std::ptrdiff_t{kIdentifySize}) {
    fputs("no identity", out);
  } else {
    print_identify_text(out, identify + kModelAt, kModelSize);
    fputs(", firmware ", out);
    print_identify_text(out, identify + kFirmwareAt, kFirmwareSize);
  }
  std::int64_t told = number_of(node, "smart_status");
  if (told < 0)
    told = is_on(node, "smart_exceeded") ? kSmartExceeded : kSmartPassed;
  if (!is_on(node, "smart_enabled"))
    fputs(", SMART off", out);
  else if (told == kSmartPassed)
    fputs(", SMART passed", out);
  else if (told == kSmartExceeded)
    fputs(", SMART threshold exceeded", out);
  else
    fprintf(out, ", SMART answers 0x%04llx", static_cast<long long>(told));
  if (is_on(node, "standby"))
    fputs(", standby", out);
}

void korstorage_line(const char *board, const BoardNode &node, FILE *out) {
  const long long ports = number_of(node, "ports");
  fprintf(out, ports == 1 ? "%lld port" : "%lld ports", ports);
  if (is_on(node, "scan_failed"))
    fputs(", bus scan not done", out);
  const std::string_view devices = text_of(node, "devices");
  fputs(", traces ", out);
  print(out, devices.empty() ? "nothing" : devices);
  std::string_view rest = load_timeline(board, text_of(node, "medium"));
  std::string_view line;
  int events = 0;
  while (take_line(rest, line))
    events += !trimmed(line.substr(0, line.find('#'))).empty();
  fprintf(out, events == 1 ? ", %d event" : ", %d events", events);
}

// What has no device.

void memory_blocks_line(const char *board, FILE *out) {
  constexpr char kFolder[] = "sys/devices/system/memory";
  dirent **names;
  const int count = list_folder(board, kFolder, names);
  int blocks = 0;
  for (int i = 0; i < count; ++i) {
    BoardPath file;
    char text[64];
    append_text(file, kFolder, "/", names[i]->d_name, "/state");
    const std::ptrdiff_t size = read_board_file(board, file.view(), text, sizeof text);
    if (!std::string_view(names[i]->d_name).starts_with("memory") || size < 0)
      continue;
    fprintf(out, blocks++ == 0 ? "%s " : ", %s ", names[i]->d_name + strlen("memory"));
    print(out, attribute_value({text, static_cast<std::size_t>(size)}));
  }
  fputs(blocks == 0 ? "none" : "", out);
  free_names(names, count);
}

void overlays_line(const char *board, FILE *out) {
  constexpr char kFolder[] = "sys/kernel/config/device-tree/overlays";
  dirent **names;
  const int count = list_folder(board, kFolder, names);
  for (int i = 0; i < count; ++i) {
    BoardPath file;
    char text[64];
    append_text(file, kFolder, "/", names[i]->d_name, "/status");
    const std::ptrdiff_t size = read_board_file(board, file.view(), text, sizeof text);
    fprintf(out, i == 0 ? "%s " : ", %s ", names[i]->d_name);
    print(out,
          size < 0 ? "without a status" : attribute_value({text, static_cast<std::size_t>(size)}));
  }
  fputs(count == 0 ? "none" : "", out);
  free_names(names, count);
}

void process_events_line(const char *board, FILE *out) {
  static ProcessEventLine event;
  BoardNode node;
  if (load_board_node(board, "netlink/connector", node) < 0) {
    fputs("no connector", out);
    return;
  }
  std::string_view rest = load_timeline(board, text_of(node, "events"));
  int count = 0;
  std::int64_t last = 0;
  for (; next_process_event(rest, event); ++count)
    last = event.at;
  fprintf(out, count == 1 ? "%d event" : "%d events", count);
  if (count > 0)
    fprintf(out, " in %.3f s", static_cast<double>(last) / 1e9);
  if (is_on(node, "denied"))
    fputs(", listening is not allowed", out);
}

}  // namespace vboard
