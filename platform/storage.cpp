// The board's storage devices, in /sys/block, and their power switches, which the map names:
//
//   storage.N = NAME SWITCH [HOST]
//
// SWITCH is the state attribute of a regulator (reg-userspace-consumer: "enabled", "disabled") or
// any attribute that takes 1 and 0. HOST is the SCSI host that scans for the device again once it
// has power; a card's host finds it by itself.

#include "platform/storage.h"

#include "platform/attribute.h"
#include "platform/board_conf.h"

#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

using rigcore::attribute_read;
using rigcore::attribute_write;
using rigcore::kEntrySize;

namespace {

constexpr std::size_t kNameSize = sizeof(StorDev::name);
constexpr unsigned int kSwitches = STOR_DEVICES_MAX;

struct PowerSwitch {
  char name[kNameSize];
  char attribute[kEntrySize];
  char host[32];
};

// Words of an entry, which has three at most; false for fewer than two or one that does not fit.
bool parse_switch(const char *entry, PowerSwitch &out) {
  out = {};
  return sscanf(entry, "%31s %255s %31s", out.name, out.attribute, out.host) >= 2;
}

// False with errno for failure: ENODEV for an entry that the map lacks, EINVAL for one that is no
// switch.
bool load_switch(unsigned int index, PowerSwitch &out) {
  char entry[kEntrySize];
  if (rigcore::board_entry("storage", index, entry, sizeof entry) != 0)
    return false;
  const bool parsed = parse_switch(entry, out);
  if (!parsed)
    errno = EINVAL;
  return parsed;
}

// The switch of a device; false with errno, ENODEV when it has none.
bool find_switch(const char *name, PowerSwitch &out) {
  for (unsigned int i = 0; i < kSwitches; ++i) {
    if (!load_switch(i, out)) {
      if (errno == ENODEV)
        continue;
      return false;
    }
    if (strcmp(out.name, name) == 0)
      return true;
  }
  errno = ENODEV;
  return false;
}

// A regulator's switch speaks in words.
bool takes_words(const PowerSwitch &power) {
  const char *slash = strrchr(power.attribute, '/');
  return slash != nullptr && strcmp(slash, "/state") == 0;
}

// STOR_POWEROFF or STOR_POWERUP, or -1.
int read_switch(const PowerSwitch &power) {
  char text[32];
  if (attribute_read(power.attribute, text, sizeof text) < 0)
    return -1;
  const bool on = takes_words(power) ? strcmp(text, "enabled") == 0 : strcmp(text, "0") != 0;
  return on ? STOR_POWERUP : STOR_POWEROFF;
}

void block_path(const char *name, const char *attribute, char (&out)[128]) {
  snprintf(out, sizeof out, "/sys/block/%s%s", name, attribute);
}

bool is_there(const char *name) {
  char path[128];
  block_path(name, "", path);
  return access(path, F_OK) == 0;
}

bool starts_with(const char *text, const char *prefix) {
  return strncmp(text, prefix, strlen(prefix)) == 0;
}

// Disks and cards have a device behind them; loop, ram, zram, dm, md and nbd have none. Flash
// translation, optical drives and the boot areas of an eMMC are no storage for recordings.
bool is_storage(const char *name) {
  if (name[0] == '.' || strlen(name) >= kNameSize || starts_with(name, "mtdblock") ||
      starts_with(name, "sr") || starts_with(name, "fd"))
    return false;
  if (starts_with(name, "mmcblk") && strpbrk(name + strlen("mmcblk"), "br") != nullptr)
    return false;  // mmcblk0boot0, mmcblk0rpmb
  char path[128];
  block_path(name, "/device", path);
  return access(path, F_OK) == 0;
}

int state_of(const char *name) {
  if (!is_there(name))
    return STOR_OFFLINE;
  char path[128];
  char text[32];
  block_path(name, "/device/state", path);  // only SCSI devices have one
  if (attribute_read(path, text, sizeof text) >= 0) {
    if (strcmp(text, "created") == 0)
      return STOR_DET;
    if (strcmp(text, "offline") == 0 || strcmp(text, "deleted") == 0)
      return STOR_OFFLINE;
    if (strcmp(text, "running") != 0)
      return STOR_ERROR;
  } else if (errno != ENOENT) {
    return -1;
  }
  long read_only = 0;
  block_path(name, "/ro", path);
  if (rigcore::attribute_read_number(path, &read_only) != 0 && errno != ENOENT)
    return -1;
  return read_only != 0 ? STOR_READONLY : STOR_ONLINE;
}

int power_state_of(const char *name) {
  PowerSwitch power;
  if (find_switch(name, power))
    return read_switch(power);
  if (errno != ENODEV)
    return -1;
  if (is_there(name))
    return STOR_POWERUP;
  errno = ENODEV;
  return -1;
}

bool is_listed(const StorDevList &list, const char *name) {
  for (std::int32_t i = 0; i < list.count; ++i) {
    if (strcmp(list.devices[i].name, name) == 0)
      return true;
  }
  return false;
}

// Keeps the list in the order of the names; the last ones do not fit.
void insert_name(StorDevList &list, const char *name) {
  std::int32_t at = 0;
  while (at < list.count && strcmp(list.devices[at].name, name) < 0)
    ++at;
  if (at == STOR_DEVICES_MAX)
    return;
  list.count = std::min(list.count + 1, STOR_DEVICES_MAX);
  std::copy_backward(list.devices + at, list.devices + list.count - 1, list.devices + list.count);
  list.devices[at] = {};
  strcpy(list.devices[at].name, name);
}

// These two return false with errno for failure.
bool collect_block_devices(StorDevList &list) {
  DIR *directory = opendir("/sys/block");
  if (directory == nullptr)
    return errno == ENOENT;  // a kernel without block devices
  const dirent *entry;
  do {
    errno = 0;
    entry = readdir(directory);
    if (entry != nullptr && is_storage(entry->d_name))
      insert_name(list, entry->d_name);
  } while (entry != nullptr);
  const int reason = errno;
  closedir(directory);
  errno = reason;
  return reason == 0;
}

bool collect_switched_devices(StorDevList &list) {
  for (unsigned int i = 0; i < kSwitches; ++i) {
    PowerSwitch power;
    if (!load_switch(i, power)) {
      if (errno == ENODEV)
        continue;
      return false;
    }
    if (!is_listed(list, power.name))
      insert_name(list, power.name);
  }
  return true;
}

// The name of a caller's record; EINVAL for one that is no name.
const char *name_of(const StorDev *device) {
  if (device == nullptr || device->name[0] == '\0' || device->name[0] == '.' ||
      memchr(device->name, '\0', kNameSize) == nullptr || strchr(device->name, '/') != nullptr) {
    errno = EINVAL;
    return nullptr;
  }
  return device->name;
}

// The kernel lets the device go first: it writes its caches back and stops the disk.
int switch_off(const char *name, const PowerSwitch &power) {
  char path[128];
  block_path(name, "/device/delete", path);
  if (attribute_write(path, "1") != 0 && errno != ENOENT)
    return -1;
  return attribute_write(power.attribute, takes_words(power) ? "disabled" : "0");
}

int switch_on(const PowerSwitch &power) {
  if (attribute_write(power.attribute, takes_words(power) ? "enabled" : "1") != 0)
    return -1;
  if (power.host[0] == '\0')
    return 0;
  char path[128];
  snprintf(path, sizeof path, "/sys/class/scsi_host/%s/scan", power.host);
  return attribute_write(path, "- - -");  // every channel, target and unit
}

}  // namespace

int rig_stor_devlist(StorDevList *list) {
  if (list == nullptr) {
    errno = EINVAL;
    return -1;
  }
  StorDevList found = {};
  if (!collect_block_devices(found) || !collect_switched_devices(found))
    return -1;
  for (std::int32_t i = 0; i < found.count; ++i) {
    StorDev &device = found.devices[i];
    const int state = state_of(device.name);
    const int power_state = power_state_of(device.name);
    if (state < 0 || power_state < 0)
      return -1;
    device.state = static_cast<std::uint32_t>(state);
    device.power_state = static_cast<std::uint32_t>(power_state);
  }
  *list = found;
  return 0;
}

int rig_stor_dev_state(StorDev *device) {
  const char *name = name_of(device);
  return name != nullptr ? state_of(name) : -1;
}

int rig_stor_dev_power_state(StorDev *device) {
  const char *name = name_of(device);
  return name != nullptr ? power_state_of(name) : -1;
}

int rig_stor_dev_power_ctrl(StorDev *device, std::uint32_t power) {
  const char *name = name_of(device);
  if (name == nullptr)
    return -1;
  if (power != STOR_POWEROFF && power != STOR_POWERUP) {
    errno = EINVAL;
    return -1;
  }
  PowerSwitch found;
  if (!find_switch(name, found))
    return -1;
  return power == STOR_POWERUP ? switch_on(found) : switch_off(name, found);
}
