// The board's map: a text of "key = value" lines, searched as it stands. It is a page or two long
// and an applet asks for a handful of entries, so there is nothing to build, sort or allocate.

#include "platform/board_conf.h"

#include "platform/attribute.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

namespace rigcore {

namespace {

constexpr char kPath[] = "/etc/benchrig/board.conf";

// The board's GPIO lines are where its device tree puts them; the rest are the names that mainline
// drivers give. One text instead of a table of pointers: it needs no relocation at start.
constexpr char kBuiltIn[] =
    "buzzer = /sys/class/leds/buzzer/brightness\n"
    "alarm.input.0 = /sys/class/gpio/gpio40/value\n"
    "alarm.input.1 = /sys/class/gpio/gpio41/value\n"
    "alarm.input.2 = /sys/class/gpio/gpio42/value\n"
    "alarm.input.3 = /sys/class/gpio/gpio43/value\n"
    "alarm.input.4 = /sys/class/gpio/gpio44/value\n"
    "alarm.input.5 = /sys/class/gpio/gpio45/value\n"
    "alarm.input.6 = /sys/class/gpio/gpio46/value\n"
    "alarm.input.7 = /sys/class/gpio/gpio47/value\n"
    "alarm.output.0 = /sys/class/gpio/gpio48/value\n"
    "vga.status = /sys/class/drm/card0-VGA-1/status\n"
    "bootparam = /sys/bus/nvmem/devices/bootparam0/nvmem\n"
    "hardinfo = /sys/bus/nvmem/devices/hardinfo0/nvmem\n"
    "cpld = /sys/class/firmware/cpld\n"
    "version.korboot = /proc/device-tree/chosen/first-stage,version\n"
    "version.uboot = /proc/device-tree/chosen/u-boot,version\n"
    "version.korbsp = /etc/os-release PRETTY_NAME\n";

bool is_blank(char c) {
  return c == ' ' || c == '\t' || c == '\r';
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && is_blank(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && is_blank(text.back()))
    text.remove_suffix(1);
  return text;
}

// Takes the next line off `text` and returns it without its line end, comment and outer blanks. A
// comment starts with a '#' at the line's begin or after a blank: paths may hold one elsewhere.
std::string_view take_line(std::string_view &text) {
  const std::size_t end = text.find('\n');
  std::string_view line(text.data(), end == text.npos ? text.size() : end);
  text.remove_prefix(end == text.npos ? text.size() : end + 1);
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '#' && (i == 0 || is_blank(line[i - 1]))) {
      line.remove_suffix(line.size() - i);
      break;
    }
  }
  return trimmed(line);
}

bool split_entry(std::string_view line, std::string_view *key, std::string_view *value) {
  const std::size_t equals = line.find('=');
  if (equals == line.npos)
    return false;
  *key = trimmed({line.data(), equals});
  line.remove_prefix(equals + 1);
  *value = trimmed(line);
  return !key->empty();
}

}  // namespace

std::string_view built_in_map() {
  return {kBuiltIn, sizeof kBuiltIn - 1};
}

bool find_entry(std::string_view text, std::string_view key, std::string_view *value) {
  bool found = false;
  while (!text.empty()) {
    std::string_view line_key, line_value;
    if (split_entry(take_line(text), &line_key, &line_value) && line_key == key) {
      *value = line_value;
      found = true;
    }
  }
  return found;
}

int first_bad_line(std::string_view text) {
  for (int number = 1; !text.empty(); ++number) {
    std::string_view key, value;
    const std::string_view line = take_line(text);
    if (!line.empty() && !split_entry(line, &key, &value))
      return number;
  }
  return 0;
}

void read_board_map(const char *path, BoardMap &map) {
  map.length = 0;
  map.error = 0;
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    map.error = errno == ENOENT ? 0 : errno;
    return;
  }
  const ssize_t length = read_whole(fd, map.text, sizeof map.text);
  if (length < 0)
    map.error = errno;
  else if (static_cast<std::size_t>(length) == sizeof map.text)
    map.error = EFBIG;
  else
    map.length = static_cast<std::size_t>(length);
  close(fd);
}

int map_entry(const BoardMap &map, std::string_view key, char *value, std::size_t size) {
  if (map.error != 0) {
    // Falling back to the built-in map would be a guess: the file may say otherwise.
    errno = map.error;
    return -1;
  }
  std::string_view found;
  if (!find_entry({map.text, map.length}, key, &found))
    find_entry(built_in_map(), key, &found);
  if (found.empty()) {
    errno = ENODEV;
    return -1;
  }
  if (found.size() >= size) {
    errno = ENAMETOOLONG;
    return -1;
  }
  memcpy(value, found.data(), found.size());
  value[found.size()] = '\0';
  return 0;
}

int board_entry(const char *key, char *value, std::size_t size) {
  static BoardMap map;
  static bool is_read = false;
  if (!is_read) {
    read_board_map(kPath, map);
    is_read = true;
    const int line = first_bad_line({map.text, map.length});
    if (line != 0)
      fprintf(stderr, "%s:%d: not \"key = value\", line ignored\n", kPath, line);
  }
  return map_entry(map, key, value, size);
}

int board_entry(const char *family, unsigned int index, char *value, std::size_t size) {
  char key[64];
  snprintf(key, sizeof key, "%s.%u", family, index);
  return board_entry(key, value, size);
}

}  // namespace rigcore
