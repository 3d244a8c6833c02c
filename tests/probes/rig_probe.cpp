// The probe of the platform library: a program whose command line is a list of operations. It calls
// them one after the other in one process and prints a line for each: the operation, then its
// result and what it stored, or the errno's name.
//
//     rig_probe total  key 0  get bootcmd  set kdbg 8
//     total 3
//     key 0 bootcmd
//     get 0 run a
//     set 0

#include "platform/board_io.h"
#include "platform/boot_blocks.h"
#include "platform/device_tree.h"
#include "platform/storage.h"
#include "platform/uenv.h"
#include "platform/versions.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <cstdint>

namespace {

struct Step {
  const char *name;
  int words;  // how many words it takes from the command line
  void (*run)(const char *name, char **words);
};

void report(const char *name, int result, bool failed, const char *stored = "") {
  if (failed)
    printf("%s %s\n", name, strerrorname_np(errno));
  else if (stored[0] == '\0')
    printf("%s %d\n", name, result);
  else
    printf("%s %d %s\n", name, result, stored);
}

void step_total(const char *name, char **) {
  const int result = rig_uenv_totalkey();
  report(name, result, result < 0);
}

void step_key(const char *name, char **words) {
  char key[RIG_UENV_KEY_SIZE] = "";
  const int result = rig_uenv_key(atoi(words[0]), key, sizeof key);
  report(name, result, result != 0, key);
}

void step_get(const char *name, char **words) {
  char value[RIG_UENV_VALUE_SIZE] = "";
  const int result = rig_uenv_get(words[0], value, sizeof value);
  report(name, result, result != 0, value);
}

void step_set(const char *name, char **words) {
  const int result = rig_uenv_set(words[0], words[1]);
  report(name, result, result != 0);
}

void step_beep(const char *name, char **words) {
  const int result = rig_beep(atoi(words[0]));
  report(name, result, result != 0);
}

void step_input(const char *name, char **) {
  std::uint32_t levels = 0xDEADBEEF;
  const int result = rig_alarm_input(&levels);
  char text[16];
  snprintf(text, sizeof text, "%x", levels);
  report(name, result, result != 0, text);
}

void step_output(const char *name, char **words) {
  auto levels = static_cast<std::uint32_t>(strtoul(words[0], nullptr, 0));
  const int result = rig_alarm_output(&levels);
  report(name, result, result == 0);
}

void step_vga(const char *name, char **) {
  const int result = rig_detect_vga();
  report(name, result, result < 0);
}

// Writes a boot-parameter block of one byte's copies.
void step_bootparam(const char *name, char **words) {
  unsigned char block[RIG_BOOTPARAM_SIZE];
  memset(block, atoi(words[0]), sizeof block);
  const int result = rig_bootparam_set(block, sizeof block);
  report(name, result, result != 0);
}

void step_state(const char *name, char **words) {
  StorDev device = {};
  snprintf(device.name, sizeof device.name, "%s", words[0]);
  const int result = rig_stor_dev_state(&device);
  report(name, result, result < 0);
}

void step_power(const char *name, char **words) {
  StorDev device = {};
  snprintf(device.name, sizeof device.name, "%s", words[0]);
  const int result = rig_stor_dev_power_state(&device);
  report(name, result, result < 0);
}

void step_switch(const char *name, char **words) {
  StorDev device = {};
  snprintf(device.name, sizeof device.name, "%s", words[0]);
  const int result =
      rig_stor_dev_power_ctrl(&device, static_cast<std::uint32_t>(strtoul(words[1], nullptr, 0)));
  report(name, result, result != 0);
}

// A text as a property.
void step_overlay(const char *name, char **words) {
  DtbOverlayProp property = {};
  property.node = words[0];
  property.name = words[1];
  property.type = DTB_PROP_STRING;
  property.value = words[2];
  property.length = static_cast<std::uint32_t>(strlen(words[2]));
  const int result = rig_dtb_overlay(&property, 1);
  report(name, result, result != 0);
}

void step_uboot(const char *name, char **) {
  char text[RIG_VERSION_TEXT_SIZE] = "";
  const int result = rig_get_ubootversion(text);
  report(name, result, result != 0, text);
}

void step_korbsp(const char *name, char **) {
  char text[RIG_VERSION_TEXT_SIZE] = "";
  const int result = rig_get_korbspversion(text);
  report(name, result, result != 0, text);
}

void step_date(const char *name, char **) {
  const std::uint32_t result = rig_kernel_date();
  report(name, static_cast<int>(result), result == 0);
}

constexpr Step kSteps[] = {
    {"total", 0, step_total},     {"key", 1, step_key},     {"get", 1, step_get},
    {"set", 2, step_set},         {"beep", 1, step_beep},   {"input", 0, step_input},
    {"output", 1, step_output},   {"vga", 0, step_vga},     {"bootparam", 1, step_bootparam},
    {"state", 1, step_state},     {"power", 1, step_power}, {"switch", 2, step_switch},
    {"overlay", 3, step_overlay}, {"uboot", 0, step_uboot}, {"korbsp", 0, step_korbsp},
    {"date", 0, step_date},
};

const Step *find_step(const char *name) {
  for (const Step &step : kSteps) {
    if (strcmp(step.name, name) == 0)
      return &step;
  }
  fprintf(stderr, "rig_probe: no step %s\n", name);
  exit(2);
}

}  // namespace

int main(int argc, char **argv) {
  for (int i = 1; i < argc;) {
    const Step *step = find_step(argv[i]);
    if (i + step->words >= argc) {
      fprintf(stderr, "rig_probe: %s takes %d words\n", argv[i], step->words);
      return 2;
    }
    step->run(step->name, argv + i + 1);
    i += 1 + step->words;
  }
  return 0;
}
