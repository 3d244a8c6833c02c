// The probe of the platform library: a program whose command line is a list of operations. It calls
// them one after the other in one process and prints a line for each: the operation, then its
// result and what it stored. The one result that means failure is printed as the errno's name.
//
//     rig_probe total  key 0  get bootcmd  set kdbg 8
//     total 3
//     key 0 bootcmd
//     get 0 run a
//     set 0
//
// An operation that changes what it is to leave untouched on failure adds the word "touched".

#include "platform/board_io.h"
#include "platform/boot_blocks.h"
#include "platform/device_tree.h"
#include "platform/logo.h"
#include "platform/storage.h"
#include "platform/uenv.h"
#include "platform/upgrade.h"
#include "platform/versions.h"

#include <errno.h>
#include <limits.h>
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

// No operation gives this reason: whoever prints it has forgotten to set errno.
constexpr int kNoReason = EXFULL;

void report(const char *name, int result, int failure, const char *stored = "",
            bool touched = false) {
  if (result == failure)
    printf("%s %s%s\n", name, strerrorname_np(errno), touched ? " touched" : "");
  else if (stored[0] == '\0')
    printf("%s %d\n", name, result);
  else
    printf("%s %d %s\n", name, result, stored);
}

// The word NULL is a null pointer.
bool is_null(const char *word) {
  return strcmp(word, "NULL") == 0;
}

void step_total(const char *name, char **) {
  report(name, rig_uenv_totalkey(), -1);
}

void step_key(const char *name, char **words) {
  char key[RIG_UENV_KEY_SIZE] = "";
  const int result = rig_uenv_key(atoi(words[0]), key, sizeof key);
  report(name, result, -1, key);
}

// Names variable words[0] in a room of words[1] bytes, or, when that is NULL, in none.
void step_key_room(const char *name, char **words) {
  char room[16];
  memset(room, '.', sizeof room);
  const bool nowhere = is_null(words[1]);
  const int size = nowhere ? static_cast<int>(sizeof room) : atoi(words[1]);
  const int result = rig_uenv_key(atoi(words[0]), nowhere ? nullptr : room, size);
  char text[sizeof room + 1] = "";
  for (std::size_t i = 0; i < sizeof room; ++i)
    text[i] = room[i] != '\0' ? room[i] : '$';
  report(name, result, -1, text, strspn(text, ".") != sizeof room);
}

void step_get(const char *name, char **words) {
  char value[RIG_UENV_VALUE_SIZE] = "";
  const int result = rig_uenv_get(words[0], value, sizeof value);
  report(name, result, -1, value);
}

// Reads words[0] into a room of words[1] bytes, or, when that is NULL, into none.
void step_get_room(const char *name, char **words) {
  char room[16];
  memset(room, '.', sizeof room);
  const bool nowhere = is_null(words[1]);
  const int size = nowhere ? static_cast<int>(sizeof room) : atoi(words[1]);
  const char *key = is_null(words[0]) ? nullptr : words[0];
  const int result = rig_uenv_get(key, nowhere ? nullptr : room, size);
  char text[sizeof room + 1] = "";
  for (std::size_t i = 0; i < sizeof room; ++i)
    text[i] = room[i] != '\0' ? room[i] : '$';
  report(name, result, -1, text, strspn(text, ".") != sizeof room);
}

void step_set(const char *name, char **words) {
  report(name, rig_uenv_set(words[0], words[1]), -1);
}

// Reads a boot environment's value into a room of words[1] bytes. What it leaves there is printed
// as it is, the NUL as a dollar sign, and what it does not change as points.
void step_value(const char *name, char **words) {
  char room[16], before[16];
  memset(before, '.', sizeof before);
  memcpy(room, before, sizeof room);
  const int result =
      rigabi_get_value("boot", is_null(words[0]) ? nullptr : words[0], room, atoi(words[1]));
  const bool touched = memcmp(room, before, sizeof room) != 0;
  char text[sizeof room + 1] = "";
  for (std::size_t i = 0; i < sizeof room; ++i)
    text[i] = room[i] != '\0' ? room[i] : '$';
  report(name, result, -1, text, touched);
}

void step_value_nowhere(const char *name, char **words) {
  report(name, rigabi_get_value("boot", words[0], nullptr, 16), -1);
}

// Reads the version of words[0] into a room that holds no NUL but the one after it.
void step_version(const char *name, char **words) {
  struct {
    const char *name;
    int (*get)(char *text);
  } const versions[] = {
      {"korboot", rig_get_korbootversion},
      {"uboot", rig_get_ubootversion},
      {"korbsp", rig_get_korbspversion},
      {"kernel", rig_get_kernelversion},
  };
  for (const auto &version : versions) {
    if (strcmp(version.name, words[0]) != 0)
      continue;
    char text[RIG_VERSION_TEXT_SIZE + 1] = "";
    memset(text, '.', RIG_VERSION_TEXT_SIZE);
    const int result = version.get(text);
    report(name, result, -1, text, strspn(text, ".") != RIG_VERSION_TEXT_SIZE);
  }
}

void step_beep(const char *name, char **words) {
  report(name, rig_beep(atoi(words[0])), -1);
}

void step_input(const char *name, char **) {
  std::uint32_t levels = 0xDEADBEEF;
  const int result = rig_alarm_input(&levels);
  char text[16];
  snprintf(text, sizeof text, "%x", levels);
  report(name, result, -1, text, levels != 0xDEADBEEF);
}

void step_output(const char *name, char **words) {
  auto levels = static_cast<std::uint32_t>(strtoul(words[0], nullptr, 0));
  const int result = rig_alarm_output(&levels);
  report(name, result, 0);
}

void step_vga(const char *name, char **) {
  report(name, rig_detect_vga(), -1);
}

// Absence is no failure.
void step_feature(const char *name, char **words) {
  report(name, rig_detect(atoi(words[0])), INT_MIN);
}

// Writes a boot-parameter block of one byte's copies.
void step_bootparam(const char *name, char **words) {
  unsigned char block[RIG_BOOTPARAM_SIZE];
  memset(block, atoi(words[0]), sizeof block);
  report(name, rig_bootparam_set(block, sizeof block), -1);
}

// Reads a block, with this number as the size of the caller's room. What was read is printed as its
// first and its last byte.
void step_block(const char *name, int (*get)(void *, int), int size) {
  unsigned char block[512], before[512];
  memset(before, 0xEE, sizeof before);
  memcpy(block, before, sizeof block);
  const int result = get(block, size);
  char text[16];
  snprintf(text, sizeof text, "%02x %02x", block[0], block[RIG_BOOTPARAM_SIZE - 1]);
  const std::size_t kept = result == -1 ? 0 : RIG_BOOTPARAM_SIZE;
  report(name, result, -1, text, memcmp(block + kept, before + kept, sizeof block - kept) != 0);
}

void step_get_bootparam(const char *name, char **words) {
  step_block(name, rig_bootparam_get, atoi(words[0]));
}

void step_get_hardinfo(const char *name, char **words) {
  step_block(name, rig_hardinfo_get, atoi(words[0]));
}

void step_set_bootparam(const char *name, char **words) {
  unsigned char block[512] = {};
  report(name, rig_bootparam_set(block, atoi(words[0])), -1);
}

// A record of this name. The room after the name's NUL is not blank, and a name of 32 characters
// and more has no NUL.
StorDev *fill_device(StorDev *device, const char *name) {
  if (is_null(name))
    return nullptr;
  const std::size_t size = strlen(name) + 1;
  memset(device, 'x', sizeof *device);
  memcpy(device->name, name, size < sizeof device->name ? size : sizeof device->name);
  return device;
}

void step_state(const char *name, char **words) {
  StorDev device;
  report(name, rig_stor_dev_state(fill_device(&device, words[0])), -1);
}

void step_power(const char *name, char **words) {
  StorDev device;
  report(name, rig_stor_dev_power_state(fill_device(&device, words[0])), -1);
}

void step_switch(const char *name, char **words) {
  StorDev device;
  const auto power = static_cast<std::uint32_t>(strtoul(words[1], nullptr, 0));
  report(name, rig_stor_dev_power_ctrl(fill_device(&device, words[0]), power), -1);
}

// Prints "NAME STATE POWER" of each device.
void step_list(const char *name, char **words) {
  StorDevList list = {};
  const StorDevList before = list;
  const int result = rig_stor_devlist(is_null(words[0]) ? nullptr : &list);
  char text[STOR_DEVICES_MAX * 64] = "";
  for (std::int32_t i = 0; i < list.count; ++i) {
    const StorDev &device = list.devices[i];
    const std::size_t length = strlen(text);
    snprintf(text + length, sizeof text - length, "%s%s %u %u", i > 0 ? ", " : "", device.name,
             device.state, device.power_state);
  }
  report(name, result, -1, text, memcmp(&list, &before, sizeof list) != 0);
}

// Programs CPLD words[0] with words[1] of words[2]: so many bytes of a text that is repeated.
void step_burn(const char *name, char **words) {
  static char image[RIG_CPLD_IMAGE_MAX + 1];
  const std::size_t length = strlen(words[2]);
  for (std::size_t i = 0; i < sizeof image; ++i)
    image[i] = words[2][i % length];
  const int result =
      rig_upgrade_burn_cpld(atoi(words[0]), is_null(words[2]) ? nullptr : image, atoi(words[1]));
  report(name, result, -1);
}

// Prints the banner, and a result that is not 0.
void step_logo(const char *name, char **words) {
  const int result = rig_print_logo(atoi(words[0]), atoi(words[1]));
  if (result != 0)
    report(name, result, -1);
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
  report(name, result, -1);
}

void step_uboot(const char *name, char **) {
  char text[RIG_VERSION_TEXT_SIZE] = "";
  const int result = rig_get_ubootversion(text);
  report(name, result, -1, text);
}

void step_korbsp(const char *name, char **) {
  char text[RIG_VERSION_TEXT_SIZE] = "";
  const int result = rig_get_korbspversion(text);
  report(name, result, -1, text);
}

void step_date(const char *name, char **) {
  const std::uint32_t result = rig_kernel_date();
  report(name, static_cast<int>(result), 0);
}

constexpr Step kSteps[] = {
    {"total", 0, step_total},
    {"key", 1, step_key},
    {"key_room", 2, step_key_room},
    {"get", 1, step_get},
    {"get_room", 2, step_get_room},
    {"set", 2, step_set},
    {"value", 2, step_value},
    {"value_nowhere", 1, step_value_nowhere},
    {"version", 1, step_version},
    {"beep", 1, step_beep},
    {"input", 0, step_input},
    {"output", 1, step_output},
    {"vga", 0, step_vga},
    {"feature", 1, step_feature},
    {"bootparam", 1, step_bootparam},
    {"get_bootparam", 1, step_get_bootparam},
    {"set_bootparam", 1, step_set_bootparam},
    {"get_hardinfo", 1, step_get_hardinfo},
    {"state", 1, step_state},
    {"power", 1, step_power},
    {"switch", 2, step_switch},
    {"list", 1, step_list},
    {"burn", 3, step_burn},
    {"logo", 2, step_logo},
    {"overlay", 3, step_overlay},
    {"uboot", 0, step_uboot},
    {"korbsp", 0, step_korbsp},
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
    errno = kNoReason;
    step->run(step->name, argv + i + 1);
    i += 1 + step->words;
  }
  return 0;
}
