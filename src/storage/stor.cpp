// bt2 stor: the board's storage devices and their power: list, state, switching, and a power cycle
// of all of them ("-a").
//
// The count checks look at the whole command line, not at the option: "-l" with a further word
// prints the usage and goes on. Only -h and no argument at all are -1. A power cycle that fails
// leaves the devices as they are, so that one can look at them.

#include "storage/storage.h"

#include "common/numbers.h"
#include "platform/storage.h"

#include <getopt.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <span>

namespace {

constexpr char kUsage[] =
    "\n stor v1.0\n"
    "Usage:\n\n"
    "    stor  -l                     ---list all stor name\n"
    "    stor  -s  stor_name   1/0    ---set stor state, stor_name(mmcblk0; msa) 1:POWERUP  "
    "0:POWEROFF\n"
    "    stor  -g  stor_name          ---get stor state, stor_name(mmcblk0; msa)\n\n\n"
    "example:\n\n"
    "    stor  -s  msa   1       ---set msa  POWERUP\n"
    "    stor  -g  msa           ---get msa  state\n\n\n";
static_assert(sizeof kUsage - 1 == 357);

// The number of the check in the message that names it.
constexpr const char *kRoutine = "stor_main";
constexpr int kSetNameLine = 250;
constexpr int kSetPowerLine = 257;
constexpr int kGetNameLine = 287;

struct StateName {
  int value;
  const char *name;
};

constexpr StateName kStateNames[] = {
    {STOR_OFFLINE, "STOR_OFFLINE"},   {STOR_ONLINE, "STOR_ONLINE"},
    {STOR_ERROR, "STOR_ERROR"},       {STOR_DAMAGE, "STOR_DAMAGE"},
    {STOR_DET, "STOR_DET"},           {STOR_FS_PANIC, "STOR_FS_PANIC"},
    {STOR_READONLY, "STOR_READONLY"},
};

constexpr StateName kPowerNames[] = {
    {STOR_POWEROFF, "STOR_POWEROFF"},
    {STOR_POWERUP, "STOR_POWERUP"},
};

template <std::size_t Count>
const char *find_name(const StateName (&names)[Count], int value) {
  for (const StateName &row : names) {
    if (row.value == value)
      return row.name;
  }
  return nullptr;
}

int usage() {
  fputs(kUsage, stderr);
  return -1;
}

void print_state(const char *device, int state) {
  if (const char *name = find_name(kStateNames, state); name != nullptr)
    printf("%s state: %s.\n", device, name);
  else
    printf("%s state: %d.\n", device, state);
}

void print_power_state(const char *device, int state) {
  if (const char *name = find_name(kPowerNames, state); name != nullptr)
    printf("%s power_state: %s.\n", device, name);
  else
    printf("%s power_state: %d.\n", device, state);
}

// The library's count is printed as it stands; no more than the record holds is looked at.
std::span<StorDev> devices_of(StorDevList &list) {
  return {list.devices, static_cast<std::size_t>(std::clamp(list.count, 0, STOR_DEVICES_MAX))};
}

int list_devices(StorDevList &list) {
  list = {};
  const int result = rig_stor_devlist(&list);
  if (result < 0) {
    puts("rig_stor_devlist failure.");
    return result;
  }
  printf("rig_stor_devlist sucess!\n have %d storarge devices:\n", list.count);  // sic
  int index = 0;
  for (const StorDev &device : devices_of(list))
    printf("dev[%d]name:%s, state:0x%x, power_state:%u\n", index++, device.name, device.state,
           device.power_state);
  return 0;
}

int switch_device(StorDev &device, std::uint32_t power) {
  const int result = rig_stor_dev_power_ctrl(&device, power);
  if (result < 0)
    printf("rig_stor_dev_power_ctrl %s failure.\n", device.name);
  return result;
}

int switch_all(StorDevList &list, std::uint32_t power) {
  for (StorDev &device : devices_of(list)) {
    if (switch_device(device, power) < 0)
      return -1;
  }
  return 0;
}

int restore_all(StorDevList &saved) {
  for (StorDev &device : devices_of(saved)) {
    if (switch_device(device, device.power_state) < 0)
      return -1;
  }
  return 0;
}

int cycle_power() {
  StorDevList list;
  puts("**********stor_autotest start**********");
  if (list_devices(list) < 0)
    return -1;
  StorDevList saved = list;

  puts("***stor_autotest unpower the devices***");
  if (switch_all(list, STOR_POWEROFF) < 0 || list_devices(list) < 0)
    return -1;

  puts("***stor_autotest power the devices***");
  if (switch_all(list, STOR_POWERUP) < 0 || list_devices(list) < 0)
    return -1;

  puts("*******recovering*******");
  if (restore_all(saved) < 0 || list_devices(list) < 0)
    return -1;
  return 0;
}

void run_autotest() {
  if (cycle_power() == 0)
    puts("*********stor_autotest sucess*********");  // sic
  else
    puts("*********stor_autotest fail***********");
}

// The first word of an option's argument; false when there is none.
bool scan_name(const char *text, int line, StorDev &device) {
  device = {};
  if (sscanf(text, "%31s", device.name) == 1)
    return true;
  printf("%s:%d input stor_state.name err\n", kRoutine, line);
  usage();
  return false;
}

void get_device(const char *name) {
  StorDev device;
  if (!scan_name(name, kGetNameLine, device))
    return;
  const int state = rig_stor_dev_state(&device);
  const int power_state = rig_stor_dev_power_state(&device);
  print_state(device.name, state);
  print_power_state(device.name, power_state);
}

void set_device(const char *name, const char *power_text) {
  StorDev device;
  if (!scan_name(name, kSetNameLine, device))
    return;
  int scanned;
  if (sscanf(power_text, "%d", &scanned) != 1) {
    printf("%s:%d input stor_state.power_state err\n", kRoutine, kSetPowerLine);
    usage();
    return;
  }
  const std::int32_t power = parse_decimal(power_text);
  printf("stor_state.name = %s\n", device.name);
  if (rig_stor_dev_power_ctrl(&device, static_cast<std::uint32_t>(power)) < 0)
    puts("rig_stor_dev_power_ctrl failure.");
  else
    print_power_state(device.name, power);
}

}  // namespace

int stor_applet(int argc, char **argv) {
  if (argc < 2)
    return usage();
  StorDevList list;
  int option;
  optind = 0;
  while ((option = getopt(argc, argv, "hals:g:")) != -1) {
    switch (option) {
      case 'h':
        return usage();
      case 'a':
        run_autotest();
        break;
      case 'l':
        if (argc == 2)
          list_devices(list);
        else
          usage();
        break;
      case 'g':
        if (argc == 3)
          get_device(optarg);
        else
          usage();
        break;
      case 's':
        if (argc == 4)
          set_device(optarg, argv[3]);
        else
          usage();
        break;
      default:
        puts("Set command  error, no this command!");
        break;
    }
  }
  return 0;
}
