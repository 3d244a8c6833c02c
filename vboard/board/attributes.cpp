// Attributes are files of the board's sys directory, read as they stand. Writes come through here,
// since most attributes do more with a value than keep it: they check it, clamp it, act on it.
//
// sys.wires of the board holds its wires, one a line: "/sys/FROM -> /sys/TO". A bench plug that
// loops an alarm output back to the inputs is such a file; cutting a wire is deleting its line.
//
// An image that goes up through the firmware class (/sys/class/firmware/NAME) is programmed as the
// node file firmware/NAME of the board says:
//   medium   where the image ends up: media/MEDIUM
//   size     bytes that the part holds; a longer image is refused
//   fails    what goes wrong, as the class tells it: transferring:hw-error, programming:timeout,
//   ...

#include "vboard/board/attributes.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/board/file_updates.h"
#include "vboard/board/memory_blocks.h"
#include "vboard/board/node.h"
#include "vboard/board/overlays.h"
#include "vboard/board/power_switches.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include <algorithm>

namespace vboard {
namespace {

constexpr std::size_t kPageSize = 4096;  // the most that a text attribute takes
constexpr int kMostHops = 4;             // of a value along wires that form a ring
constexpr std::int64_t kDefaultPart = 262'144;

// Texts.

int store_value(const char *board, std::string_view path, std::string_view value) {
  BoardPath file;
  if (const int error = find_board_file(board, path, file); error < 0)
    return error;
  const int fd = hold_file(file.c_str());
  if (fd < 0)
    return fd;
  FixedText<kPageSize + 2> text;
  append_text(text, value.substr(0, kPageSize), value.empty() ? "" : "\n");
  const int result = overwrite_file(fd, text.view());
  sys_close(fd);
  return result;
}

// The attribute's value without its line end; empty when the board lacks it.
std::string_view load_value(const char *board, std::string_view path, char (&text)[kPageSize]) {
  BoardPath file;
  if (find_board_file(board, path, file) < 0)
    return {};
  const int fd = board_open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return {};
  const ssize_t length = sys_pread(fd, text, sizeof text, 0);
  sys_close(fd);
  return length > 0 ? attribute_value({text, static_cast<std::size_t>(length)})
                    : std::string_view();
}

// The name on the board of the attribute `name` beside `path`.
BoardPath sibling(std::string_view path, std::string_view name) {
  BoardPath other;
  append_text(other, path.substr(0, path.rfind('/') + 1), name);
  return other;
}

int store_sibling(const char *board, std::string_view path, std::string_view name,
                  std::string_view value) {
  return store_value(board, sibling(path, name).view(), value);
}

int store_decimal(const char *board, std::string_view path, std::int64_t value) {
  FixedText<24> text;
  append_decimal(text, value);
  return store_value(board, path, text.view());
}

// Hooks: what takes the place of storing the text as it came.

struct Write {
  const char *board;
  std::string_view path;
  std::string_view bytes;
  std::int64_t offset;
};

// A brightness is a number, and at most what max_brightness beside it says.
ssize_t write_brightness(const Write &write) {
  std::int64_t value;
  if (!parse_number(attribute_value(write.bytes), value) || value < 0)
    return -EINVAL;
  char text[kPageSize];
  std::int64_t most;
  if (parse_number(load_value(write.board, sibling(write.path, "max_brightness").view(), text),
                   most))
    value = std::min(value, most);
  return store_decimal(write.board, write.path, value);
}

// A pin is high or low, whatever number it was given.
ssize_t write_pin(const Write &write) {
  std::int64_t value;
  if (!parse_number(attribute_value(write.bytes), value))
    return -EINVAL;
  return store_decimal(write.board, write.path, value != 0);
}

// Bytes in place; the block keeps its size.
ssize_t write_block(const Write &write) {
  BoardPath file;
  if (const int error = find_board_file(write.board, write.path, file); error < 0)
    return error;
  const int fd = hold_file(file.c_str());
  if (fd < 0)
    return fd;
  const std::int64_t size = sys_size(fd);
  ssize_t result = -ENOSPC;
  if (write.offset >= 0 && write.offset < size)
    result = sys_pwrite(fd, write.bytes.data(),
                        std::min(write.bytes.size(), static_cast<std::size_t>(size - write.offset)),
                        write.offset);
  sys_close(fd);
  return result;
}

// The firmware class.

bool is_loading(const char *board, std::string_view path) {
  char text[kPageSize];
  return load_value(board, sibling(path, "loading").view(), text) == "1";
}

ssize_t write_image(const Write &write) {
  if (!is_loading(write.board, write.path))
    return -ENODEV;
  BoardPath file;
  if (const int error = find_board_file(write.board, write.path, file); error < 0)
    return error;
  const int fd = hold_file(file.c_str());
  if (fd < 0)
    return fd;
  const ssize_t result = sys_pwrite(fd, write.bytes.data(), write.bytes.size(), write.offset);
  sys_close(fd);
  return result;
}

// Copies `size` bytes of the image to the part's medium, over what is there.
int program(const char *image, const char *medium, std::int64_t size) {
  const int from = board_open(image, O_RDONLY | O_CLOEXEC);
  if (from < 0)
    return from;
  const int to = board_open(medium, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  ssize_t result = std::min(to, 0);
  for (std::int64_t at = 0; result >= 0 && at < size;) {
    char page[kPageSize];
    const std::size_t piece =
        static_cast<std::size_t>(std::min<std::int64_t>(sizeof page, size - at));
    result = sys_pread(from, page, piece, at);
    if (result == 0)
      result = -EIO;
    if (result > 0)
      result = sys_pwrite(to, page, static_cast<std::size_t>(result), at);
    at += result;
  }
  if (to >= 0)
    sys_close(to);
  sys_close(from);
  return static_cast<int>(std::min<ssize_t>(result, 0));
}

// What the class tells when an image went through, or why it did not. A part that fails while it is
// being programmed is left with the first half of the image.
std::string_view take_image(const char *board, std::string_view name, const char *image,
                            std::int64_t size, Node &settings) {
  BoardPath part;
  BoardPath file;
  append_text(part, "firmware/", name);
  if (find_board_file(board, part.view(), file) < 0 || load_node(file.c_str(), settings) < 0)
    return "preparing:hw-error";
  const std::string_view fails = node_text(settings, "fails");
  const std::string_view medium = node_text(settings, "medium");
  if (size > node_number(settings, "size", kDefaultPart))
    return "preparing:invalid-file-size";
  const bool starts = fails.empty() || fails.starts_with("programming");
  if (starts && !medium.empty()) {
    if (find_medium(board, medium, file) < 0 ||
        program(image, file.c_str(), fails.empty() ? size : size / 2) < 0)
      return "programming:hw-error";
  }
  return fails;
}

void drop_image(const char *image) {
  const int fd = board_open(image, O_WRONLY | O_CLOEXEC);
  if (fd < 0)
    return;
  sys_ftruncate(fd, 0);
  sys_close(fd);
}

ssize_t begin_loading(const Write &write, const char *image) {
  drop_image(image);
  store_sibling(write.board, write.path, "status", "receiving");
  store_sibling(write.board, write.path, "error", "");
  return store_value(write.board, write.path, "1");
}

ssize_t end_loading(const Write &write, const char *image, bool hand_over) {
  std::string_view error;
  Node settings;
  FileStatus status = {};
  if (hand_over && board_stat(image, status) == 0) {
    const std::string_view directory = write.path.substr(0, write.path.rfind('/'));
    error = take_image(write.board, directory.substr(directory.rfind('/') + 1), image,
                       static_cast<std::int64_t>(status.size), settings);
  }
  drop_image(image);
  store_sibling(write.board, write.path, "error", error);
  store_sibling(write.board, write.path, "remaining_size", "0");
  store_sibling(write.board, write.path, "status", "idle");
  return store_value(write.board, write.path, "0");
}

// loading: 1 begins an image, 0 hands it to the part, -1 drops it.
ssize_t write_loading(const Write &write) {
  std::int64_t value;
  if (!parse_number(attribute_value(write.bytes), value))
    return -EINVAL;
  BoardPath image;
  if (const int error = find_sibling(write.board, write.path, "data", image); error < 0)
    return error;
  if (value == 1)
    return begin_loading(write, image.c_str());
  if (value != 0 && value != -1)
    return -EINVAL;
  // Without a begun image both leave things as they are.
  return is_loading(write.board, write.path) ? end_loading(write, image.c_str(), value == 0) : 0;
}

ssize_t probe_memory(const Write &write) {
  return write_memory_probe(write.board, write.bytes);
}

ssize_t set_memory_state(const Write &write) {
  return write_memory_state(write.board, write.path, write.bytes);
}

ssize_t set_power(const Write &write) {
  return write_power_switch(write.board, write.path, attribute_value(write.bytes));
}

ssize_t write_overlay(const Write &write) {
  return write_overlay_blob(write.board, write.path, write.bytes, write.offset);
}

struct AttributeHook {
  std::string_view directory;  // the path begins with
  std::string_view name;       // and ends with
  bool counts;                 // `write` returns the bytes taken; otherwise 0 for all of them
  ssize_t (*write)(const Write &write);
};

constexpr AttributeHook kHooks[] = {
    {.directory = "/sys/class/firmware/",
     .name = "/loading",
     .counts = false,
     .write = write_loading},
    {.directory = "/sys/class/firmware/", .name = "/data", .counts = true, .write = write_image},
    {.directory = "/sys/class/gpio/", .name = "/value", .counts = false, .write = write_pin},
    {.directory = "/sys/class/leds/",
     .name = "/brightness",
     .counts = false,
     .write = write_brightness},
    {.directory = kPowerSwitches, .name = kPowerSwitch, .counts = false, .write = set_power},
    {.directory = "/sys/devices/system/memory/",
     .name = "/probe",
     .counts = false,
     .write = probe_memory},
    {.directory = "/sys/devices/system/memory/",
     .name = "/state",
     .counts = false,
     .write = set_memory_state},
    {.directory = "/sys/kernel/config/device-tree/overlays/",
     .name = "/dtbo",
     .counts = true,
     .write = write_overlay},
    {.directory = "/sys/bus/nvmem/", .name = "/nvmem", .counts = true, .write = write_block},
};

ssize_t write_text(const Write &write) {
  return store_value(write.board, write.path, attribute_value(write.bytes));
}

constexpr AttributeHook kOrdinary = {
    .directory = {}, .name = {}, .counts = false, .write = write_text};

const AttributeHook &hook_of(std::string_view path) {
  for (const AttributeHook &hook : kHooks) {
    if (path.starts_with(hook.directory) && path.ends_with(hook.name))
      return hook;
  }
  return kOrdinary;
}

// Wires.

void follow_wires(const char *board, std::string_view from, std::string_view value, int hops) {
  BoardPath file;
  Node wires;
  if (hops == 0 || find_board_file(board, "sys.wires", file) < 0 ||
      load_node(file.c_str(), wires) < 0)
    return;
  std::string_view rest(wires.text, wires.length);
  std::string_view line;
  while (take_line(rest, line)) {
    const std::string_view source = take_word(line);
    const std::string_view arrow = take_word(line);
    const std::string_view target = take_word(line);
    if (source != from || arrow != "->" || !target.starts_with("/sys/"))
      continue;
    if (store_value(board, target, value) == 0)
      follow_wires(board, target, value, hops - 1);
  }
}

}  // namespace

ssize_t write_attribute(const char *board, const char *path, const void *data, std::size_t size,
                        std::int64_t offset) {
  Write write = {.board = board,
                 .path = path,
                 .bytes = {static_cast<const char *>(data), size},
                 .offset = offset};
  const AttributeHook &hook = hook_of(write.path);
  if (!hook.counts)  // a text, which a NUL ends: programs write that too
    write.bytes = write.bytes.substr(0, write.bytes.find('\0'));
  const ssize_t result = hook.write(write);
  if (result < 0 || hook.counts)
    return result;
  char text[kPageSize];
  follow_wires(board, write.path, load_value(board, write.path, text), kMostHops);
  return static_cast<ssize_t>(size);
}

int make_sys_directory(const char *board, const char *path) {
  return make_overlay(board, path);
}

int remove_sys_directory(const char *board, const char *path) {
  return remove_overlay(board, path);
}

}  // namespace vboard
