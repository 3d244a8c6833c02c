// IDENTIFY DEVICE and SMART commands of a disk given by its node.

#include "platform/sata.h"

#include "platform/sata_passthrough.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <utility>

using rigcore::AtaCommand;

namespace {

constexpr std::uint8_t kIdentifyDevice = 0xEC;
constexpr std::uint8_t kSmart = 0xB0;
constexpr std::uint8_t kSmartMid = 0x4F;
constexpr std::uint8_t kSmartHigh = 0xC2;

constexpr AtaCommand kIdentify = {.command = kIdentifyDevice,
                                  .features = 0,
                                  .count = 1,
                                  .lba_mid = 0,
                                  .lba_high = 0,
                                  .reads_sector = true};

constexpr AtaCommand smart_read(std::uint8_t features) {
  return {.command = kSmart,
          .features = features,
          .count = 1,
          .lba_mid = kSmartMid,
          .lba_high = kSmartHigh,
          .reads_sector = true};
}

constexpr AtaCommand smart_switch(std::uint8_t features, std::uint8_t count) {
  return {.command = kSmart,
          .features = features,
          .count = count,
          .lba_mid = kSmartMid,
          .lba_high = kSmartHigh,
          .reads_sector = false};
}

constexpr AtaCommand kReadValues = smart_read(0xD0);
constexpr AtaCommand kReadThresholds = smart_read(0xD1);
constexpr AtaCommand kEnableAutosave = smart_switch(0xD2, 0xF1);
constexpr AtaCommand kEnableSmart = smart_switch(0xD8, 0);

// Read-only and without blocking: SG_IO asks for no more, and a disk that is not ready answers too.
int open_disk(const char *path) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

int close_disk(int disk, int result) {
  const int reason = errno;
  close(disk);
  errno = reason;
  return result;
}

int read_sector(const char *path, const AtaCommand &command, void *buffer) {
  if (buffer == nullptr) {
    errno = EINVAL;
    return -1;
  }
  const int disk = open_disk(path);
  if (disk < 0)
    return -1;
  return close_disk(disk, rigcore::send_ata_command(disk, command, buffer));
}

void swap_pairs(std::uint8_t *text, int size) {
  for (int i = 0; i < size; i += 2)
    std::swap(text[i], text[i + 1]);
}

}  // namespace

int rig_sata_read_identify_info(const char *path, void *buffer) {
  if (read_sector(path, kIdentify, buffer) != 0)
    return -1;
  auto *identify = static_cast<std::uint8_t *>(buffer);
  swap_pairs(identify + 20, 20);
  swap_pairs(identify + 46, 8);
  swap_pairs(identify + 54, 40);
  return 0;
}

int rig_sata_enable_smart(const char *path) {
  const int disk = open_disk(path);
  if (disk < 0)
    return -1;
  int result = rigcore::send_ata_command(disk, kEnableSmart, nullptr);
  if (result == 0)
    result = rigcore::send_ata_command(disk, kEnableAutosave, nullptr);
  return close_disk(disk, result);
}

int rig_sata_read_smart_values(const char *path, void *buffer) {
  return read_sector(path, kReadValues, buffer);
}

int rig_sata_read_smart_thresholds(const char *path, void *buffer) {
  return read_sector(path, kReadThresholds, buffer);
}
