// mem_hotplug: gives a range of physical memory to the running kernel: probes its blocks through
// sysfs and sets their states.
//
// Blocks go in from the last to the first. A block whose state reads "offline" is left alone and
// every other one is set to "online_movable": the test looks inverted, and is meant as it stands.
// The status is 0 also when the range was refused.

#include "debug/debug_tools.h"

#include "common/numbers.h"
#include "debug/memory_blocks.h"

#include <sys/stat.h>

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

namespace {

constexpr const char *kBlockSizePath = "/sys/devices/system/memory/block_size_bytes";
constexpr const char *kProbePath = "/sys/devices/system/memory/probe";
constexpr std::size_t kMostText = 31;

using SysfsText = char[kMostText + 1];

void mem_hotplug_usage() {
  puts("===============");
  puts("Usage:");
  puts("mem_hotplug [addr] [size]");
  puts("sample: mem_hotplug 0x1000 0x1000");
}

// With its NUL. What goes wrong shows when the state is read.
void sysfs_write(const char *path, const char *text) {
  const int file = open(path, O_WRONLY);
  if (file < 0)
    return;
  [[maybe_unused]] const ssize_t written = write(file, text, strlen(text) + 1);
  close(file);
}

// False when the file cannot be read; one newline at the end is dropped.
bool sysfs_read(const char *path, SysfsText &out_text) {
  const int file = open(path, O_RDONLY);
  if (file < 0)
    return false;
  const ssize_t count = read(file, out_text, kMostText);
  close(file);
  if (count < 0)
    return false;
  out_text[count] = '\0';
  if (count > 0 && out_text[count - 1] == '\n')
    out_text[count - 1] = '\0';
  return true;
}

// 0 when it cannot be told.
std::uint32_t read_block_size() {
  SysfsText text;
  if (!sysfs_read(kBlockSizePath, text)) {
    puts("nvtmem: can't get alignment size");
    return 0;
  }
  return parse_u32(text, 16);
}

bool has_block(std::uint32_t index) {
  char path[64];
  snprintf(path, sizeof path, "/sys/devices/system/memory/memory%d", static_cast<int>(index));
  struct stat status;
  return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

void probe_block(std::uint32_t address) {
  char text[16];
  snprintf(text, sizeof text, "0x%08x", address);
  sysfs_write(kProbePath, text);
}

int set_block_state(std::uint32_t index) {
  char path[64];
  snprintf(path, sizeof path, "/sys/devices/system/memory/memory%u/state", index);
  SysfsText state;
  if (!sysfs_read(path, state)) {
    puts("nvtmem: can't get state");
    return -1;
  }
  if (strncmp(state, "offline", strlen("offline")) != 0)  // not to be inverted: see above
    sysfs_write(path, "online_movable");
  return 0;
}

int nvtmem_hotplug_set(std::uint32_t size, std::uint32_t address) {
  const std::uint32_t block = read_block_size();
  if (block == 0)
    return -1;
  if (!is_block_aligned(address, size, block)) {
    printf(
        "nvtmem: Your parameters are not aligned.              "
        "Addr: %u size: %u aligned size: %d\n",
        address, size, static_cast<int>(block));
    return -1;
  }
  if (has_block(block_index(address, block))) {
    puts("mem has plugged.");
    return 0;
  }
  for (std::uint32_t offset = size; offset != 0;) {
    offset -= block;
    probe_block(address + offset);
  }
  for (std::uint32_t offset = size; offset != 0;) {
    offset -= block;
    if (set_block_state(block_index(address + offset, block)) != 0)
      return -1;
  }
  return 0;
}

}  // namespace

int mem_hotplug_main(int argc, char **argv) {
  if (argc < 3) {
    mem_hotplug_usage();
    return -1;
  }
  const std::uint32_t address = parse_u32(argv[1], 0);
  const std::uint32_t size = parse_u32(argv[2], 0);
  const int result = nvtmem_hotplug_set(size, address);
  if (result != 0)
    printf("nvtmem_hotplug_set fail ret:%d\n", result);
  return 0;
}
