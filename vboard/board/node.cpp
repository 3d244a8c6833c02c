#include "vboard/board/node.h"

#include "vboard/base/kernel.h"
#include "vboard/base/text.h"
#include "vboard/board/board_files.h"
#include "vboard/board/file_updates.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>

namespace vboard {

namespace {

// Where a setting's line stands in the text, and where its value within it.
struct Place {
  std::size_t line, line_end;  // the end is behind the line feed, if there is one
  std::string_view value;
};

bool find_setting(const Node &node, std::string_view key, Place &out) {
  std::string_view rest(node.text, node.length);
  std::string_view line;
  while (take_line(rest, line)) {
    const std::size_t equals = line.find('=');
    const std::string_view name = trimmed(line.substr(0, equals));
    if (equals == std::string_view::npos || name.empty() || name[0] == '#' || name != key)
      continue;
    out.line = static_cast<std::size_t>(line.data() - node.text);
    out.line_end = node.length - rest.size();
    out.value = trimmed(line.substr(equals + 1));
    return true;
  }
  return false;
}

// Reads all of an open file.
int read_whole(int fd, Node &out) {
  std::size_t length = 0;
  while (length < sizeof out.text) {
    const ssize_t count = sys_pread(fd, out.text + length, sizeof out.text - length,
                                    static_cast<std::int64_t>(length));
    if (count == -EINTR)
      continue;
    if (count < 0)
      return static_cast<int>(count);
    const std::size_t wanted = sizeof out.text - length;
    length += static_cast<std::size_t>(count);
    // A regular file gives less than was asked for only at its end.
    if (static_cast<std::size_t>(count) < wanted) {
      out.text[length] = '\0';
      out.length = length;
      return 0;
    }
  }
  return -E2BIG;
}

}  // namespace

int load_node(const char *file, Node &out) {
  const int fd = board_open(file, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0)
    return fd;
  int result = sys_flock(fd, LOCK_SH);
  if (result == 0) {
    Node fresh;
    result = read_whole(fd, fresh);
    if (result == 0) {
      memcpy(out.text, fresh.text, fresh.length + 1);
      out.length = fresh.length;
    }
  }
  sys_close(fd);
  return result;
}

std::string_view node_text(const Node &node, std::string_view key) {
  Place place;
  return find_setting(node, key, place) ? place.value : std::string_view();
}

std::int64_t node_number(const Node &node, std::string_view key, std::int64_t fallback) {
  std::int64_t value;
  return parse_number(node_text(node, key), value) ? value : fallback;
}

bool set_node_text(Node &node, std::string_view key, std::string_view value) {
  if (key.empty() || key.find_first_of("=\n#") != std::string_view::npos ||
      value.find('\n') != std::string_view::npos)
    return false;
  FixedText<sizeof node.text> line;
  Place place = {node.length, node.length, {}};
  // A last line without its end is ended before another one follows.
  if (!find_setting(node, key, place) && node.length > 0 && node.text[node.length - 1] != '\n')
    append_text(line, "\n");
  append_text(line, key, value.empty() ? " =" : " = ", value, "\n");

  const std::size_t tail = node.length - place.line_end;
  if (line.overflow || place.line + line.length + tail >= sizeof node.text)
    return false;
  memmove(node.text + place.line + line.length, node.text + place.line_end, tail);
  memcpy(node.text + place.line, line.data, line.length);
  node.length = place.line + line.length + tail;
  node.text[node.length] = '\0';
  return true;
}

bool set_node_number(Node &node, std::string_view key, std::int64_t value) {
  FixedText<24> text;
  append_decimal(text, value);
  return set_node_text(node, key, text.view());
}

int update_node(const char *file, void (*change)(Node &node, void *context), void *context) {
  const int fd = hold_file(file);
  if (fd < 0)
    return fd;
  Node before;
  int result = read_whole(fd, before);
  if (result == 0) {
    Node after = before;
    change(after, context);
    const bool same =
        after.length == before.length && memcmp(after.text, before.text, after.length) == 0;
    if (!same) {
      result = replace_file(file, fd, {after.text, after.length});
      // A full disk: what was there before fits in any case.
      if (result < 0)
        overwrite_file(fd, {before.text, before.length});
    }
  }
  sys_close(fd);
  return result;
}

}  // namespace vboard
