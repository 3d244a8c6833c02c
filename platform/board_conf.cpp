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
constexpr char kCompatiblePath[] = "/proc/device-tree/compatible";
constexpr char kRecorder[] = "korvexium,recorder";

// Each is one text instead of a table of pointers: it needs no relocation at start.

// Names that the kernel's DRM class, U-Boot and os-release(5) fix on every board. They are only
// read.
constexpr char kGeneral[] =
    "vga.status = /sys/class/drm/card0-VGA-1/status\n"
    "version.uboot = /proc/device-tree/chosen/u-boot,version\n"
    "version.korbsp = /etc/os-release PRETTY_NAME\n";

// The recorder's GPIO lines, and the labels that its device tree gives. On another board the same
// names may belong to something else: nothing may be driven there.
constexpr char kOfRecorder[] =
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
    "bootparam = /sys/bus/nvmem/devices/bootparam0/nvmem\n"
    "hardinfo = /sys/bus/nvmem/devices/hardinfo0/nvmem\n"
    "cpld = /sys/class/firmware/cpld\n"
    "version.korboot = /proc/device-tree/chosen/first-stage,version\n";

// Keys with a number; the keys without one are those of the defaults.
struct Family {
  char name[16];
  unsigned int count;
};

constexpr Family kFamilies[] = {
    {"alarm.input", 32},
    {"alarm.output", 32},
    {"storage", 16},
    {"feature", 1000},
};

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

// A number as the library writes it: without leading zeros.
bool is_number_below(std::string_view text, unsigned int limit) {
  if (text.empty() || text.size() > 9 || (text[0] == '0' && text.size() > 1))
    return false;
  unsigned int value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9')
      return false;
    value = value * 10 + static_cast<unsigned int>(c - '0');
  }
  return value < limit;
}

bool is_known(std::string_view key) {
  for (const Family &family : kFamilies) {
    const std::string_view name = family.name;
    if (key.size() > name.size() && key.starts_with(name) && key[name.size()] == '.' &&
        is_number_below(key.substr(name.size() + 1), family.count))
      return true;
  }
  std::string_view value;
  return find_entry(general_map(), key, &value) || find_entry(recorder_map(), key, &value);
}

// Reads the names that the device tree gives the board. A board without a device tree is no
// recorder.
bool is_on_recorder() {
  char names[1024];
  const int fd = open(kCompatiblePath, O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return false;
  const ssize_t length = read_whole(fd, names, sizeof names);
  close(fd);
  return length > 0 && names_recorder({names, static_cast<std::size_t>(length)});
}

void report(const Complaint &complaint) {
  const int size = static_cast<int>(complaint.key.size());
  const char *key = complaint.key.data();
  switch (complaint.what) {
    case Complaint::kNoEntry:
      fprintf(stderr, "%s:%d: not \"key = value\", line ignored\n", kPath, complaint.line);
      break;
    case Complaint::kUnknownKey:
      fprintf(stderr, "%s:%d: unknown key \"%.*s\", line ignored\n", kPath, complaint.line, size,
              key);
      break;
    case Complaint::kQuotedValue:
      fprintf(stderr, "%s:%d: the quotes are taken as a part of the value of \"%.*s\"\n", kPath,
              complaint.line, size, key);
      break;
  }
}

}  // namespace

std::string_view general_map() {
  return {kGeneral, sizeof kGeneral - 1};
}

std::string_view recorder_map() {
  return {kOfRecorder, sizeof kOfRecorder - 1};
}

bool names_recorder(std::string_view compatible) {
  while (!compatible.empty()) {
    const std::size_t end = compatible.find('\0');
    if (compatible.substr(0, end) == kRecorder)
      return true;
    compatible.remove_prefix(end == compatible.npos ? compatible.size() : end + 1);
  }
  return false;
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

bool next_complaint(std::string_view &text, int &line, Complaint &out) {
  while (!text.empty()) {
    std::string_view key, value;
    const std::string_view entry = take_line(text);
    ++line;
    if (entry.empty())
      continue;
    if (!split_entry(entry, &key, &value))
      out = {line, Complaint::kNoEntry, {}};
    else if (!is_known(key))
      out = {line, Complaint::kUnknownKey, key};
    else if (value.starts_with('"') || value.starts_with('\''))
      out = {line, Complaint::kQuotedValue, key};
    else
      continue;
    return true;
  }
  return false;
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
    // Falling back to the defaults would be a guess: the file may say otherwise.
    errno = map.error;
    return -1;
  }
  std::string_view found;
  if (!find_entry({map.text, map.length}, key, &found) &&
      !(map.is_recorder && find_entry(recorder_map(), key, &found)))
    find_entry(general_map(), key, &found);
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
    map.is_recorder = is_on_recorder();
    is_read = true;
    std::string_view text(map.text, map.length);
    Complaint complaint;
    for (int line = 0; next_complaint(text, line, complaint);)
      report(complaint);
  }
  return map_entry(map, key, value, size);
}

int board_entry(const char *family, unsigned int index, char *value, std::size_t size) {
  char key[64];
  snprintf(key, sizeof key, "%s.%u", family, index);
  return board_entry(key, value, size);
}

}  // namespace rigcore
