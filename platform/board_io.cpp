// Buzzer, alarm inputs and outputs, VGA detection and features: one attribute each, named by the
// board's map.

#include "platform/board_io.h"

#include "platform/attribute.h"
#include "platform/board_conf.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <cstdint>

namespace {

using rigcore::board_entry;
using rigcore::kEntrySize;

constexpr unsigned int kLines = 32;  // one for each bit of a level word

}  // namespace

int rig_beep(int on) {
  char path[kEntrySize];
  if (board_entry("buzzer", path, sizeof path) != 0)
    return -1;
  return rigcore::attribute_write(path, on != 0 ? "1" : "0");
}

int rig_alarm_input(std::uint32_t *levels) {
  std::uint32_t read = 0;
  bool any = false;
  for (unsigned int i = 0; i < kLines; ++i) {
    char path[kEntrySize];
    if (board_entry("alarm.input", i, path, sizeof path) != 0) {
      if (errno == ENODEV)
        continue;  // a line that this board lacks
      return -1;
    }
    long level;
    if (rigcore::attribute_read_number(path, &level) != 0)
      return -1;
    any = true;
    read |= level != 0 ? std::uint32_t{1} << i : 0;
  }
  if (!any)
    return -1;  // errno is the last line's ENODEV
  *levels = read;
  return 0;
}

int rig_alarm_output(std::uint32_t *levels) {
  int set = 0;
  int reason = 0;
  for (unsigned int i = 0; i < kLines; ++i) {
    char path[kEntrySize];
    if (board_entry("alarm.output", i, path, sizeof path) != 0) {
      if (errno == ENODEV)
        continue;
      return 0;
    }
    // One output that fails does not keep the others, which may drive a siren, from being set.
    if (rigcore::attribute_write(path, (*levels >> i & 1) != 0 ? "1" : "0") == 0)
      ++set;
    else if (reason == 0)
      reason = errno;
  }
  if (reason != 0 || set == 0) {
    errno = reason != 0 ? reason : ENODEV;
    return 0;
  }
  return set;
}

int rig_detect_vga(void) {
  char path[kEntrySize];
  char status[32];
  if (board_entry("vga.status", path, sizeof path) != 0 ||
      rigcore::attribute_read(path, status, sizeof status) < 0)
    return -1;
  if (strcmp(status, "connected") == 0)
    return 1;
  if (strcmp(status, "disconnected") == 0)
    return 0;
  errno = ENODATA;  // "unknown": the connector cannot tell
  return -1;
}

int rig_detect(int feature) {
  char value[kEntrySize];
  if (feature < 0 ||
      board_entry("feature", static_cast<unsigned int>(feature), value, sizeof value) != 0)
    return 0;
  return strcmp(value, "1") == 0 ? 1 : 0;
}
